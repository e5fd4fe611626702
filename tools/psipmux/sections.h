#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bytes.h"
#include "lineup.h"

namespace psipmux {

constexpr uint16_t kPatPid = 0x0000;
constexpr uint16_t kPsipPid = 0x1FFB;  ///< MGT, VCT, STT, RRT and alerts, A/65 5

/// GPS time minus UTC in seconds, valid since 2017.
constexpr uint8_t kGpsUtcOffset = 18;

/// A table in the MGT (A/65 6.2).
struct MgtEntry {
  uint16_t tableType = 0;
  uint16_t pid = 0;
  uint8_t version = 0;
  uint32_t numberBytes = 0;
};

// Table builders. Each returns complete sections with CRC_32.
Bytes buildPat(const Channel& channel);
/// `ratings` are sent in a content_advisory_descriptor, unless empty.
Bytes buildPmt(const Service& service, uint8_t version, const std::vector<Rating>& ratings);
Bytes buildMgt(uint8_t version, const std::vector<MgtEntry>& tables);
/// Returns the sections of the TVCT for air or the CVCT for cable (A/65 6.3).
std::vector<Bytes> buildVct(Medium medium, const Channel& channel);
/// `systemTime` is in GPS seconds: since 1980-01-06T00:00:00Z, including leap seconds (A/65 6.1).
Bytes buildStt(uint32_t systemTime, const DaylightSaving& saving);

size_t totalSize(const std::vector<Bytes>& sections);

/// Returns the MGT entry of the VCT with the given sections.
MgtEntry vctMgtEntry(Medium medium, const Channel& channel, const std::vector<Bytes>& sections);

}  // namespace psipmux
