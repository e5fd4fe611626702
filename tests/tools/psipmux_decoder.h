#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The bytes of a descriptor with its tag, as they stand in the lines of Decode.
std::string descriptor(uint8_t tag, const std::vector<uint8_t>& body);

/// What libdvbpsi, which shares no code with psipmux, makes of a transport stream played twice in a
/// row: a line for each table, program, stream and channel, and for each complaint.
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

/// What libdvbpsi finds of EIT and ETT where the MGT says they are.
DecodedGuide decodeGuide(const std::vector<uint8_t>& stream);
