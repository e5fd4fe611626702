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
constexpr size_t kMaxLongSectionSize = 4096;  // the other tables of A/65 and SCTE 18

void put8(Bytes& out, unsigned value);
void put16(Bytes& out, unsigned value);
void put32(Bytes& out, uint32_t value);
void append(Bytes& out, const Bytes& more);

/// The first three letters of a language code, zeros where there are none.
void putLanguage(Bytes& out, const std::string& language);

/// `body` must not exceed 255 bytes; nor in the next one.
void putDescriptor(Bytes& out, uint8_t tag, const Bytes& body);

/// A multiple_string_structure after its length in 8 bits; the length alone for an empty text.
void putShortText(Bytes& out, const Text& text);

/// multiple_string_structure (A/65 6.10), uncompressed. A string is sent in Latin-1 where that is
/// enough and in UTF-16 otherwise, in as many segments of 255 bytes as it needs.
Bytes multipleString(const Text& text);

/// CRC_32 of ISO 13818-1 Annex A; zero over a section that ends in its own CRC.
uint32_t crc32(const Bytes& data);

/// Wraps `body` in the long section form of ISO 13818-1. The private_indicator is set for the
/// tables of A/65 and clear for those of ISO 13818-1, whose table ids are below 0x40, and of
/// SCTE 18.
Bytes longSection(uint8_t tableId, uint16_t extension, uint8_t version, size_t number, size_t last,
                  const Bytes& body);

}  // namespace psipmux
