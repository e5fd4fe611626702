// Tables of a broadcast, byte by byte: also those that no station should send.
#ifndef ATSC_TESTS_SUPPORT_BROADCAST_H_
#define ATSC_TESTS_SUPPORT_BROADCAST_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace broadcast {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes a, const Bytes& b);
Bytes be16(unsigned value);
Bytes be32(uint32_t value);
Bytes bytesOf(const std::string& text);
// Puts the size in front, in one byte.
Bytes counted(const Bytes& bytes);

// Returns a section with its header and CRC_32.
Bytes section(uint8_t tableId, unsigned extension, const Bytes& body, unsigned version = 1,
              bool current = true);
// Corrects the CRC_32 of a changed section.
Bytes sealed(Bytes bytes);
// Makes a section one of several.
Bytes inParts(Bytes whole, uint8_t number, uint8_t last);
// Returns the packets of sections on one PID, with continuity counters from 0.
Bytes packets(unsigned pid, const std::vector<Bytes>& sections);

// Parts of a multiple_string_structure, and one with a single string.
Bytes segment(uint8_t compression, uint8_t mode, const Bytes& bytes);
Bytes stringOf(const std::string& language, const std::vector<Bytes>& segments);
Bytes text(const std::string& latin, const std::string& language = "eng");
Bytes text(const Bytes& oneSegment);

Bytes descriptor(uint8_t tag, const Bytes& content);
// Returns a content_advisory_descriptor of one region: dimensions and values.
Bytes contentAdvisory(uint8_t region, const std::vector<std::pair<int, int>>& values);

struct Element {
  uint8_t type;
  unsigned pid;
  std::string language;
};
Bytes serviceLocation(const std::vector<Element>& elements);

struct Channel {
  std::string name;
  unsigned major, minor, program;
  uint8_t serviceType = 2;
  bool hidden = false;
  Bytes descriptors = {};
  unsigned tsid = 1;
};
// `tableId` is 0xC8 for terrestrial, 0xC9 for cable.
Bytes vct(uint8_t tableId, const std::vector<Channel>& channels, unsigned version = 1,
          bool current = true);
Bytes pat(const std::vector<std::pair<unsigned, unsigned>>& programs, unsigned tsid = 1);
struct PmtStream {
  uint8_t type;
  unsigned pid;
  Bytes descriptors = {};
};
Bytes pmt(unsigned program, const std::vector<PmtStream>& streams, const Bytes& descriptors = {});

// Tables of the guide. Times are GPS seconds.
Bytes stt(uint32_t time, uint8_t gpsUtcOffset);
struct MgtEntry {
  unsigned type, pid, version = 1;
};
Bytes mgt(const std::vector<MgtEntry>& entries, unsigned version = 1);
struct Programme {
  unsigned id;
  uint32_t start;
  Bytes title;
  Bytes descriptors = {};
  unsigned duration = 1800;
};
Bytes eit(unsigned sourceId, const std::vector<Programme>& programmes, unsigned version = 1,
          bool current = true);
Bytes ett(unsigned sourceId, unsigned eventId, const Bytes& message, unsigned version = 1);

}  // namespace broadcast

#endif  // ATSC_TESTS_SUPPORT_BROADCAST_H_
