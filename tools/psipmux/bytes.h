#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lineup.h"

namespace psipmux {

using Bytes = std::vector<uint8_t>;

constexpr size_t kSectionHeaderSize = 8;
constexpr size_t kCrcSize = 4;
constexpr size_t kMaxSectionSize = 1024;      // PAT, PMT, VCT and RRT
constexpr size_t kMaxLongSectionSize = 4096;  // all other tables of A/65 and SCTE 18

void put8(Bytes& out, unsigned value);
void put16(Bytes& out, unsigned value);
void put32(Bytes& out, uint32_t value);
void append(Bytes& out, const Bytes& more);

/// Appends the first three letters of a language code, padded with zeros.
void putLanguage(Bytes& out, const std::string& language);

/// Appends a descriptor. `body` must not exceed 255 bytes.
void putDescriptor(Bytes& out, uint8_t tag, const Bytes& body);

/// Appends an 8-bit length and a multiple_string_structure, which must not exceed 255 bytes. For an
/// empty text, appends the length 0 only.
void putShortText(Bytes& out, const Text& text);

/// Returns a multiple_string_structure (A/65 6.10), uncompressed. Each string is encoded in Latin-1
/// if possible, otherwise in UTF-16, and split into segments of at most 255 bytes.
Bytes multipleString(const Text& text);

/// Returns the CRC_32 of ISO 13818-1 Annex A. It is zero for a section including its CRC.
uint32_t crc32(const Bytes& data);

/// Returns a section of ISO 13818-1 in long form. Sets private_indicator for tables of A/65, clears
/// it for tables of ISO 13818-1 (table ids below 0x40) and SCTE 18.
Bytes longSection(uint8_t tableId, uint16_t extension, uint8_t version, size_t number, size_t last,
                  const Bytes& body);

}  // namespace psipmux
