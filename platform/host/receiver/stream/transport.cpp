#include "receiver/stream/transport.h"

#include <algorithm>
#include <cstring>

namespace atschost {
namespace {

constexpr uint8_t kSyncByte = 0x47;
constexpr size_t kMaxPart = 16 * kPacketSize;

}  // namespace

void PacketSync::push(const uint8_t* bytes, size_t size, const Sink& sink) {
  // In parts, so that the buffer stays small.
  for (size_t part; size > 0; bytes += part, size -= part) {
    part = std::min(size, kMaxPart);
    pushPart(bytes, part, sink);
  }
}

void PacketSync::pushPart(const uint8_t* bytes, size_t size, const Sink& sink) {
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  size_t at = 0;
  while (buffer_.size() - at > kPacketSize) {
    const bool sync = buffer_[at] == kSyncByte;
    if (sync && (synced_ || buffer_[at + kPacketSize] == kSyncByte)) {
      synced_ = true;
      skipped_ = false;
      sink(&buffer_[at]);
      at += kPacketSize;
      continue;
    }
    synced_ = false;
    if (!skipped_) ++losses_;
    skipped_ = true;
    ++at;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(at));
}

void PacketSync::finish(const Sink& sink) {
  if (buffer_.size() == kPacketSize && buffer_[0] == kSyncByte) sink(buffer_.data());
  buffer_.clear();
}

const char* SectionAssembler::push(const uint8_t* packet, const Sink& sink) {
  if (packet[1] & 0x80) return "transport_error_indicator is set";
  if (packet[3] & 0xC0) return "table packet is scrambled";
  if (!(packet[3] & 0x10)) return nullptr;  // no payload

  const uint8_t counter = packet[3] & 0x0F;
  const uint8_t last = lastPacket_[3] & 0x0F;
  const bool repeated =
      !first_ && std::memcmp(packet + 1, lastPacket_.data() + 1, kPacketSize - 1) == 0;
  const bool continuous = !first_ && counter == ((last + 1) & 0x0F);
  std::copy(packet, packet + kPacketSize, lastPacket_.begin());
  first_ = false;
  if (repeated) return nullptr;  // ISO/IEC 13818-1 allows to send a packet twice
  if (!continuous) collecting_ = false;

  size_t at = 4;
  if (packet[3] & 0x20) at += 1u + packet[4];
  if (at >= kPacketSize) return "adaptation field fills the packet";
  if (!(packet[1] & 0x40)) {
    return collecting_ ? collect(packet + at, kPacketSize - at, sink) : nullptr;
  }

  const size_t start = at + 1u + packet[at];  // pointer_field
  if (start >= kPacketSize) {
    collecting_ = false;
    return "pointer_field passes the end of the packet";
  }
  const char* fault = nullptr;
  if (collecting_) fault = collect(packet + at + 1, start - at - 1, sink);
  if (collecting_ && !fault) fault = "section is cut off";
  // Sections follow each other until the first stuffing byte.
  for (at = start; at < kPacketSize && packet[at] != 0xFF;) {
    section_.clear();
    collecting_ = true;
    const size_t left = kPacketSize - at;
    const char* newFault = collect(packet + at, left, sink);
    if (newFault) return newFault;
    if (collecting_) return fault;
    at += section_.size();
  }
  return fault;
}

// Adds bytes to the section that is collected; passes the section on once it is whole.
const char* SectionAssembler::collect(const uint8_t* bytes, size_t size, const Sink& sink) {
  const auto take = [&](size_t wanted) {
    const size_t missing = wanted - std::min(wanted, section_.size());
    const size_t taken = std::min(missing, size);
    section_.insert(section_.end(), bytes, bytes + taken);
    bytes += taken;
    size -= taken;
    return section_.size() >= wanted;
  };
  if (!take(3)) return nullptr;
  const size_t whole = 3u + read12(&section_[1]);
  if (whole > kMaxSectionSize) {
    collecting_ = false;
    return "section_length is too large";
  }
  if (!take(whole)) return nullptr;
  collecting_ = false;
  sink(section_.data(), section_.size());
  return nullptr;
}

}  // namespace atschost
