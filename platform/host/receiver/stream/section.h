// Sections of tables (ISO/IEC 13818-1 2.4.4).
#ifndef ATSC_HOST_RECEIVER_STREAM_SECTION_H_
#define ATSC_HOST_RECEIVER_STREAM_SECTION_H_

#include <cstddef>
#include <cstdint>

#include "receiver/stream/byte_reader.h"

namespace atschost {

constexpr size_t kMaxSectionSize = 4096;

// Sizes before and after the body of a section with section_syntax_indicator.
constexpr size_t kSectionHeaderSize = 8;
constexpr size_t kSectionCrcSize = 4;

// A section with its parsed header. Does not own its bytes.
struct Section {
  uint16_t pid = 0;
  const uint8_t* bytes = nullptr;
  size_t size = 0;
  uint8_t tableId = 0;
  // Null if header and CRC are sound; else the fault, a literal. Not every section of a PID has
  // this header: only a decoder that uses the section reports the fault.
  const char* fault = nullptr;
  // The header; all 0 in a section that is too short for one.
  uint16_t extension = 0;  // table_id_extension
  uint8_t version = 0;
  bool current = false;    // current_next_indicator: the table is valid now, not later
  uint8_t number = 0;      // section_number
  uint8_t lastNumber = 0;  // last_section_number
  uint32_t crc = 0;

  // Returns a reader of the bytes between header and CRC; of none in a section that is too short.
  ByteReader body() const;
};

// Parses and checks the header of a section. `bytes` may hold anything.
Section parseSection(uint16_t pid, const uint8_t* bytes, size_t size);

// Returns CRC_32 (ISO/IEC 13818-1 Annex A); 0 over a section with a correct CRC at its end.
uint32_t crc32Mpeg(const uint8_t* bytes, size_t size);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_SECTION_H_
