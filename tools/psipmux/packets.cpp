#include "packets.h"

#include <utility>

namespace psipmux {
namespace {

constexpr uint8_t kStuffing = 0xFF;
constexpr size_t kPacketPayload = kPacketSize - 4;

}  // namespace

unsigned packetCount(const Bytes& section) {
  return static_cast<unsigned>((1 + section.size() + kPacketPayload - 1) / kPacketPayload);
}

void packetize(uint16_t pid, const Bytes& section, std::vector<Packet>& out) {
  Packet packet{pid, true, {0}};  // pointer_field
  for (const uint8_t byte : section) {
    if (packet.payload.size() == kPacketPayload) {
      out.push_back(std::move(packet));
      packet = {pid, false, {}};
    }
    packet.payload.push_back(byte);
  }
  out.push_back(std::move(packet));
}

void PacketWriter::write(const Packet& packet) {
  constexpr uint8_t kSyncByte = 0x47;
  constexpr uint8_t kPayloadOnly = 0x10;
  out_.push_back(kSyncByte);
  out_.push_back(static_cast<uint8_t>((packet.unitStart ? 0x40 : 0) | packet.pid >> 8));
  out_.push_back(static_cast<uint8_t>(packet.pid & 0xFF));
  const unsigned continuity = packet.pid == kNullPid ? 0 : continuity_[packet.pid]++;
  out_.push_back(static_cast<uint8_t>(kPayloadOnly | (continuity & 0x0F)));
  append(out_, packet.payload);
  out_.resize(out_.size() + kPacketPayload - packet.payload.size(), kStuffing);
}

void PacketWriter::write(uint16_t pid, const Bytes& section) {
  std::vector<Packet> packets;
  packetize(pid, section, packets);
  for (const Packet& packet : packets) write(packet);
}

}  // namespace psipmux
