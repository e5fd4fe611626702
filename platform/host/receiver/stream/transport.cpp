#include "receiver/stream/transport.h"

#include <algorithm>
#include <cstring>

namespace atschost {
namespace {

constexpr std::array<uint32_t, 256> makeCrcTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < table.size(); ++i) {
    uint32_t crc = i << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ (crc & 0x80000000 ? 0x04C11DB7 : 0);
    table[i] = crc;
  }
  return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = makeCrcTable();

constexpr uint8_t kSyncByte = 0x47;

// Whether descriptors fill `size` bytes exactly.
bool descriptorsFit(const uint8_t* bytes, size_t size) {
  while (size > 0) {
    if (size < 2 || size < 2u + bytes[1]) return false;
    const size_t length = 2u + bytes[1];
    bytes += length;
    size -= length;
  }
  return true;
}

constexpr size_t kToTheEnd = SIZE_MAX;

// Walks `count` entries (kToTheEnd: as many as there are) of `fixed` bytes, the last two of which
// hold the length of the descriptors that follow. Returns the bytes used; SIZE_MAX when an entry
// does not fit.
size_t walkEntries(const uint8_t* bytes, size_t size, size_t fixed, uint16_t lengthMask,
                   size_t count) {
  size_t at = 0;
  for (size_t i = 0; count == kToTheEnd ? at < size : i < count; ++i) {
    if (size - at < fixed) return SIZE_MAX;
    const size_t length = read16(bytes + at + fixed - 2) & lengthMask;
    at += fixed;
    if (size - at < length || !descriptorsFit(bytes + at, length)) return SIZE_MAX;
    at += length;
  }
  return at;
}

const char* pmtFault(const uint8_t* body, size_t size) {
  const size_t info = walkEntries(body, size, 4, 0x0FFF, 1);  // PCR_PID, program_info_length
  if (info == SIZE_MAX) return "PMT program descriptors pass the end";
  if (walkEntries(body + info, size - info, 5, 0x0FFF, kToTheEnd) == SIZE_MAX)
    return "PMT elementary stream passes the end";
  return nullptr;
}

const char* vctFault(const uint8_t* body, size_t size) {
  if (size < 4) return "VCT is too short";
  if (body[0] != 0) return "VCT of an unknown protocol version";
  const size_t channels = walkEntries(body + 2, size - 4, 32, 0x03FF, body[1]);
  if (channels == SIZE_MAX) return "VCT channel passes the end";
  const uint8_t* additional = body + 2 + channels;
  const size_t rest = size - 2 - channels;
  if (walkEntries(additional, rest, 2, 0x03FF, 1) != rest)
    return "VCT additional descriptors do not end with the section";
  return nullptr;
}

}  // namespace

uint32_t crc32Mpeg(const uint8_t* bytes, size_t size) {
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = 0; i < size; ++i) crc = crc << 8 ^ kCrcTable[crc >> 24 ^ bytes[i]];
  return crc;
}

void PacketSync::push(const uint8_t* bytes, size_t size, const Sink& sink) {
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
  if (repeated) return nullptr;  // a packet may be sent twice
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

// Adds to the open section; closes it when it is whole.
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

const char* sectionHeaderFault(const uint8_t* section, size_t size) {
  if (size < kSectionHeaderSize + kSectionCrcSize) return "section is too short";
  if (!(section[1] & 0x80)) return "section_syntax_indicator is not set";
  if (crc32Mpeg(section, size) != 0) return "CRC does not match";
  if (section[6] > section[7]) return "section_number is above last_section_number";
  return nullptr;
}

const char* sectionFault(const uint8_t* section, size_t size) {
  if (const char* fault = sectionHeaderFault(section, size)) return fault;
  const uint8_t* body = section + kSectionHeaderSize;
  const size_t bodySize = size - kSectionHeaderSize - kSectionCrcSize;
  switch (section[0]) {
    case 0x00:
      if (size > 1024) return "PAT section is too long";
      return bodySize % 4 == 0 ? nullptr : "PAT ends within a program";
    case 0x02:
      if (size > 1024) return "PMT section is too long";
      if (section[7] != 0) return "PMT has several sections";
      return pmtFault(body, bodySize);
    case 0xC8:
    case 0xC9:
      return vctFault(body, bodySize);
    default:
      return "not a table of the service list";
  }
}

}  // namespace atschost
