#include "receiver/stream/section.h"

#include <array>

namespace atschost {
namespace {

constexpr size_t kMinSectionSize = kSectionHeaderSize + kSectionCrcSize;

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

const char* headerFault(const Section& section) {
  if (section.size < kMinSectionSize) return "section is too short";
  if (!(section.bytes[1] & 0x80)) return "section_syntax_indicator is not set";
  if (crc32Mpeg(section.bytes, section.size) != 0) return "CRC does not match";
  if (section.number > section.lastNumber) return "section_number is above last_section_number";
  return nullptr;
}

}  // namespace

uint32_t crc32Mpeg(const uint8_t* bytes, size_t size) {
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = 0; i < size; ++i) crc = crc << 8 ^ kCrcTable[crc >> 24 ^ bytes[i]];
  return crc;
}

ByteReader Section::body() const {
  if (size < kMinSectionSize) return {bytes, 0};
  return {bytes + kSectionHeaderSize, size - kMinSectionSize};
}

Section parseSection(uint16_t pid, const uint8_t* bytes, size_t size) {
  Section section;
  section.pid = pid;
  section.bytes = bytes;
  section.size = size;
  ByteReader in(bytes, size);
  section.tableId = in.u8();
  if (size >= kMinSectionSize) {
    in.u16();  // section_syntax_indicator, section_length
    section.extension = in.u16();
    const uint8_t version = in.u8();
    section.version = version >> 1 & 0x1F;
    section.current = version & 1;
    section.number = in.u8();
    section.lastNumber = in.u8();
    section.crc = ByteReader(bytes + size - kSectionCrcSize, kSectionCrcSize).u32();
  }
  section.fault = headerFault(section);
  return section;
}

}  // namespace atschost
