#pragma once

#include <cstdint>
#include <vector>

#include "bytes.h"
#include "lineup.h"
#include "sections.h"

namespace psipmux {

/// The PIDs of EIT-0 and ETT-0; those of instance k lie k above. No stream may have them.
constexpr uint16_t kEitPid = 0x1D00;
constexpr uint16_t kEttPid = 0x1E00;
constexpr unsigned kMaxInstances = 128;

constexpr uint8_t kCaptionServiceTag = 0x86;
constexpr uint8_t kContentAdvisoryTag = 0x87;

/// An instance of the EIT or ETT: its sections are those of all services.
struct GuideTable {
  uint16_t tableType = 0;  ///< as in the MGT
  uint16_t pid = 0;
  std::vector<Bytes> sections;
};

/// EIT-0, ETT-0, EIT-1, and so on (A/65 6.5, 6.6); those that would have no section are left out.
/// Instance 0 is that of the three hours, counted from midnight UTC, in which `systemTime` (GPS
/// seconds) lies. Throws MuxError when it is far too large for any stream.
std::vector<GuideTable> buildGuide(const Lineup& lineup, const Channel& channel,
                                   uint32_t systemTime);

/// The programme of a service that is on at `systemTime` (GPS seconds), or null, and how many have
/// been before it.
struct OnAir {
  const Programme* programme = nullptr;
  uint32_t number = 0;
};
OnAir findOnAir(const Service& service, uint32_t systemTime);

/// caption_service_descriptor (A/65 6.9.2) without its tag and length.
Bytes captionServices(const std::vector<CaptionService>& captions);

/// content_advisory_descriptor (A/65 6.9.3) without its tag and length.
Bytes contentAdvisory(const std::vector<Rating>& ratings);

/// Rating region table (A/65 6.4). It has one section of at most 1024 bytes; what is returned for
/// a larger region is longer than that.
Bytes buildRrt(const RatingRegion& region);
MgtEntry rrtMgtEntry(const RatingRegion& region, const Bytes& section);

/// cable_emergency_alert (SCTE 18 5), beginning at once.
Bytes buildAlert(const Alert& alert);

}  // namespace psipmux
