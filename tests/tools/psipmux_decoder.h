#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// The bytes of a descriptor with its tag, as they stand in the lines of Decode.
std::string Descriptor(uint8_t tag, const std::vector<uint8_t>& body);

/// What libdvbpsi, which shares no code with psipmux, makes of a transport stream played twice in a
/// row: a line for each table, program, stream and channel, and for each complaint.
std::set<std::string> Decode(const std::vector<uint8_t>& stream);
