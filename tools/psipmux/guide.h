#pragma once

#include <cstdint>
#include <vector>

#include "bytes.h"
#include "lineup.h"
#include "sections.h"

namespace psipmux {

/// PIDs of EIT-0 and ETT-0. Instance k uses the PID plus k. Reserved: elementary streams and PMTs
/// must use other PIDs.
constexpr uint16_t kEitPid = 0x1D00;
constexpr uint16_t kEttPid = 0x1E00;
constexpr unsigned kMaxInstances = 128;

constexpr uint8_t kCaptionServiceTag = 0x86;
constexpr uint8_t kContentAdvisoryTag = 0x87;

/// An instance of the EIT or ETT, with the sections of all services.
struct GuideTable {
  uint16_t tableType = 0;  ///< in the MGT
  uint16_t pid = 0;
  std::vector<Bytes> sections;
};

/// Returns EIT-0, ETT-0, EIT-1, and so on (A/65 6.5, 6.6), without instances that have no section.
/// Instance 0 covers the three-hour period, counted from midnight UTC, that contains `systemTime`
/// (GPS seconds). Throws MuxError if the guide is too large for any stream.
std::vector<GuideTable> buildGuide(const Lineup& lineup, const Channel& channel,
                                   uint32_t systemTime);

/// A programme, or null, and the number of programmes before it.
struct OnAir {
  const Programme* programme = nullptr;
  uint32_t number = 0;
};
/// Returns the programme of a service at `systemTime` (GPS seconds).
OnAir findOnAir(const Service& service, uint32_t systemTime);

/// Returns a caption_service_descriptor (A/65 6.9.2) without tag and length.
Bytes captionServices(const std::vector<CaptionService>& captions);

/// Returns a content_advisory_descriptor (A/65 6.9.3) without tag and length.
Bytes contentAdvisory(const std::vector<Rating>& ratings);

/// Returns the rating region table (A/65 6.4), a single section. The caller checks that it does not
/// exceed kMaxSectionSize.
Bytes buildRrt(const RatingRegion& region);
MgtEntry rrtMgtEntry(const RatingRegion& region, const Bytes& section);

/// Returns a cable_emergency_alert (SCTE 18 5) that starts immediately.
Bytes buildAlert(const Alert& alert);

}  // namespace psipmux
