// Decodes the tables of a tuned stream that change while it is watched: MGT, STT, EIT, ETT and RRT
// (A/65) and the cable emergency alert (SCTE 18).
#ifndef ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/rating_region.h"

namespace atschost {

// System time table (A/65 6.1).
struct SystemTime {
  uint32_t gpsSeconds = 0;   // since 1980-01-06 00:00:00 UTC, leap seconds counted
  uint8_t gpsUtcOffset = 0;  // seconds
  bool daylightStatus = false;
  uint8_t daylightDayOfMonth = 0;
  uint8_t daylightHour = 0;

  uint32_t unixSeconds() const;
};

// One event of an EIT (A/65 6.5). Texts are UTF-16BE.
struct GuideEvent {
  uint16_t eventId = 0;   // 14 bits
  uint32_t start = 0;     // GPS seconds
  uint32_t duration = 0;  // seconds
  std::string title;
  std::string rating;        // the one to show, "TV-14-D-V"; empty: not rated
  std::string otherRatings;  // with all regions' ratings, where there are several; else empty
  std::vector<Advisory> advisories;
  std::vector<uint8_t> genres;
  bool captions = false;  // there are some
  std::vector<CaptionService> captionServices;

  bool operator==(const GuideEvent& other) const;
};

// The guide tables of one stream. Instance k of a table covers the k-th 3-hour segment (A/65 6.2).
struct GuideTables {
  using Eit = std::vector<GuideEvent>;            // in the table's order
  using Texts = std::map<uint32_t, std::string>;  // by ETM_id, UTF-16BE

  // By instance and source id; whole tables of the current version only.
  std::map<std::pair<uint8_t, uint16_t>, Eit> eits;
  std::map<uint8_t, Texts> etts;  // by instance
  // Instances that the MGT announces; without an MGT nothing is known of them.
  bool mgtSeen = false;
  std::vector<uint8_t> announcedEits;
  std::vector<uint8_t> announcedEtts;
  // Those of which everything that is on the air is here.
  std::vector<uint8_t> settledEits;
  std::vector<uint8_t> settledEtts;
};

// Cable emergency alert (SCTE 18). Texts are UTF-16BE.
struct EmergencyAlert {
  uint8_t sequence = 0;  // sequence_number, 5 bits
  uint16_t eventId = 0;
  std::string originator;      // EAS_originator_code, 3 characters
  std::string eventCode;       // EAS_event_code
  std::string activationText;  // nature_of_activation_text
  std::string text;            // alert_text; that of the activation where it is empty
  uint8_t timeRemaining = 0;   // seconds; 0 means indefinite
  uint32_t start = 0;          // event_start_time, GPS seconds; 0: at once
  uint16_t duration = 0;       // event_duration, minutes; 0: indefinite
  uint8_t priority = 0;        // alert_priority, 0 to 15
  bool hasDetailsChannel = false;
};

// Rating region table as received: a whole section and what it says.
struct RatingRegionTable {
  RatingRegion region;
  std::vector<uint8_t> section;
};

// What is kept of one carrier's guide: several times what the fullest station sends. What comes
// beyond that is dropped.
constexpr size_t kMaxGuideSize = 16 << 20;  // as sizeOf() estimates
constexpr size_t kMaxGuideSources = 1000;   // in an EIT instance

// Estimated bytes of what is kept.
size_t sizeOf(const GuideTables::Eit& events);
size_t sizeOfText(const std::string& text);

// Fed with the sections of one stream. What it keeps of the guide is bounded. One thread.
class PsipDecoder {
 public:
  PsipDecoder();
  ~PsipDecoder();

  // Whether sections of a PID (13 bits) are to be pushed. Grows with what the MGT announces.
  bool wants(uint16_t pid) const;

  // `section` is as long as its section_length says. Returns null, or the fault for which it, or
  // a descriptor in it, was dropped. Sections of other tables are ignored.
  const char* push(uint16_t pid, const uint8_t* section, size_t size);

  // The stream ended and begins anew. With the second end since the MGT announced what a PID
  // carries, all that is sent there has come.
  void endPass();
  // The stream was read for so long since the last change of the MGT that a PID on which nothing
  // came is no longer waited for.
  void giveUpSilent();

  // What arrived since the last call of the same function.
  std::optional<SystemTime> takeSystemTime();
  std::optional<EmergencyAlert> takeAlert();  // repeated or not
  std::vector<RatingRegionTable> takeRatingRegions();
  bool takeGuideChange();  // an EIT or ETT came whole, or the MGT announced others

  // The offset of the last system time; none before.
  std::optional<uint8_t> gpsUtcOffset() const;

  const GuideTables& guide() const;

  // Whether an MGT was received and what is sent of the EITs and ETTs that it announces. A PID
  // counts as received when it has repeated itself, or when nothing more is to come on it.
  bool guideComplete() const;
  // Whether an MGT was received, and of every EIT and ETT all that is on the air.
  bool guideSettled() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
