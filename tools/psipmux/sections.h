#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lineup.h"

namespace psipmux {

using Bytes = std::vector<uint8_t>;

constexpr uint16_t kPatPid = 0x0000;
constexpr uint16_t kPsipPid = 0x1FFB;  ///< MGT, VCT and STT, A/65 5

/// GPS time less UTC, seconds; the value since 2017.
constexpr uint8_t kGpsUtcOffset = 18;

/// A table the MGT announces (A/65 6.2).
struct MgtEntry {
  uint16_t table_type = 0;
  uint16_t pid = 0;
  uint8_t version = 0;
  uint32_t number_bytes = 0;
};

/// CRC_32 of ISO 13818-1 Annex A; zero over a section that ends in its own CRC.
uint32_t Crc32(const Bytes& data);

/// multiple_string_structure (A/65 6.10) of one English string of one uncompressed segment.
/// The text must not exceed 255 bytes: 255 Latin-1 characters, or 127 code units otherwise.
Bytes MultipleString(const std::u16string& text);

// Table builders. Each returns complete sections with their CRC_32.
Bytes BuildPat(const Channel& channel);
Bytes BuildPmt(const Service& service);
Bytes BuildMgt(uint8_t version, const std::vector<MgtEntry>& tables);
/// TVCT for air, CVCT for cable (A/65 6.3), in as many sections as needed.
std::vector<Bytes> BuildVct(Medium medium, const Channel& channel);
/// `system_time` is in GPS seconds: since 1980-01-06T00:00:00Z, leap seconds included (A/65 6.1).
Bytes BuildStt(uint32_t system_time, const DaylightSaving& saving);

/// MGT entry of the VCT made of `sections`.
MgtEntry VctMgtEntry(Medium medium, const Channel& channel, const std::vector<Bytes>& sections);

}  // namespace psipmux
