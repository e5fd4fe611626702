#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// Returns the bytes of a descriptor with its tag, in the format of the lines of decode().
std::string descriptor(unsigned tag, const std::vector<uint8_t>& body);

/// Decodes a transport stream, played twice in a row, with libdvbpsi, which shares no code with
/// psipmux. Returns a line for each table, program, stream, channel, programme, text and complaint.
std::set<std::string> decode(const std::vector<uint8_t>& stream);
