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
  uint32_t gps_seconds = 0;    // since 1980-01-06 00:00:00 UTC, leap seconds counted
  uint8_t gps_utc_offset = 0;  // seconds
  bool daylight_status = false;
  uint8_t daylight_day_of_month = 0;
  uint8_t daylight_hour = 0;

  uint32_t unix_seconds() const;
};

// One event of an EIT (A/65 6.5). Texts are UTF-16BE.
struct GuideEvent {
  uint16_t event_id = 0;  // 14 bits
  uint32_t start = 0;     // GPS seconds
  uint32_t duration = 0;  // seconds
  std::string title;
  std::string rating;         // the one to show, "TV-14-D-V"; empty: not rated
  std::string other_ratings;  // with all regions' ratings, where there are several; else empty
  std::vector<Advisory> advisories;
  std::vector<uint8_t> genres;
  bool captions = false;  // there are some
  std::vector<CaptionService> caption_services;

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
  bool mgt_seen = false;
  std::vector<uint8_t> announced_eits;
  std::vector<uint8_t> announced_etts;
  // Those of which everything that is on the air is here.
  std::vector<uint8_t> settled_eits;
  std::vector<uint8_t> settled_etts;
};

// Cable emergency alert (SCTE 18). Texts are UTF-16BE.
struct EmergencyAlert {
  uint8_t sequence = 0;  // sequence_number, 5 bits
  uint16_t event_id = 0;
  std::string originator;       // EAS_originator_code, 3 characters
  std::string event_code;       // EAS_event_code
  std::string activation_text;  // nature_of_activation_text
  std::string text;             // alert_text; that of the activation where it is empty
  uint8_t time_remaining = 0;   // seconds; 0 means indefinite
  uint32_t start = 0;           // event_start_time, GPS seconds; 0: at once
  uint16_t duration = 0;        // event_duration, minutes; 0: indefinite
  uint8_t priority = 0;         // alert_priority, 0 to 15
  bool has_details_channel = false;
};

// Rating region table as received: a whole section and what it says.
struct RatingRegionTable {
  RatingRegion region;
  std::vector<uint8_t> section;
};

// What is kept of one carrier's guide: several times what the fullest station sends. What comes
// beyond that is dropped.
constexpr size_t kMaxGuideSize = 16 << 20;  // as size_of() estimates
constexpr size_t kMaxGuideSources = 1000;   // in an EIT instance

// Estimated bytes of what is kept.
size_t size_of(const GuideTables::Eit& events);
size_t size_of_text(const std::string& text);

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
  void end_pass();
  // The stream was read for so long since the last change of the MGT that a PID on which nothing
  // came is no longer waited for.
  void give_up_silent();

  // What arrived since the last call of the same function.
  std::optional<SystemTime> take_system_time();
  std::optional<EmergencyAlert> take_alert();  // repeated or not
  std::vector<RatingRegionTable> take_rating_regions();
  bool take_guide_change();  // an EIT or ETT came whole, or the MGT announced others

  // The offset of the last system time; none before.
  std::optional<uint8_t> gps_utc_offset() const;

  const GuideTables& guide() const;

  // Whether an MGT was received and what is sent of the EITs and ETTs that it announces. A PID
  // counts as received when it has repeated itself, or when nothing more is to come on it.
  bool guide_complete() const;
  // Whether an MGT was received, and of every EIT and ETT all that is on the air.
  bool guide_settled() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
