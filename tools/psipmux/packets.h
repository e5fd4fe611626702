#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "bytes.h"

namespace psipmux {

constexpr unsigned kPacketSize = 188;
constexpr uint16_t kNullPid = 0x1FFF;

struct Packet {
  uint16_t pid = kNullPid;
  bool unitStart = false;
  Bytes payload;  // padded with stuffing bytes
};

/// Returns the number of packets of a section. Each section starts in a new packet, after a
/// pointer_field of one byte.
unsigned packetCount(const Bytes& section);

/// Appends the packets of a section.
void packetize(uint16_t pid, const Bytes& section, std::vector<Packet>& out);

/// Writes packets to a stream with the continuity counters of their PIDs.
class PacketWriter {
 public:
  void write(const Packet& packet);
  void write(uint16_t pid, const Bytes& section);

  Bytes take() { return std::move(out_); }

 private:
  Bytes out_;
  std::map<uint16_t, unsigned> continuity_;
};

}  // namespace psipmux
