#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Returns the bytes of a descriptor with its tag, in the format of the lines of decode().
std::string descriptor(uint8_t tag, const std::vector<uint8_t>& body);

/// Decodes a transport stream, played twice in a row, with libdvbpsi, which shares no code with
/// psipmux. Returns a line for each table, program, stream, channel and complaint.
std::set<std::string> decode(const std::vector<uint8_t>& stream);

/// An event of an EIT. `title` is a multiple_string_structure.
struct GuideEvent {
  unsigned id = 0;
  unsigned start = 0;
  unsigned length = 0;
  unsigned etmLocation = 0;
  std::vector<uint8_t> title;
  std::string descriptors;
};

struct DecodedGuide {
  /// By instance and source id.
  std::map<std::pair<unsigned, unsigned>, std::vector<GuideEvent>> events;
  /// Multiple_string_structures by instance and ETM_id.
  std::map<std::pair<unsigned, unsigned>, std::vector<uint8_t>> texts;
  std::set<std::string> complaints;
};

/// Decodes EIT and ETT with libdvbpsi, on the PIDs that the MGT lists.
DecodedGuide decodeGuide(const std::vector<uint8_t>& stream);
