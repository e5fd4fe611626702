// Decodes the tables of a tuned stream that change while it is watched: MGT, STT, EIT, ETT and RRT
// (A/65) and the cable emergency alert (SCTE 18).
#ifndef ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "receiver/stream/section.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/emergency_alert.h"
#include "receiver/tables/guide_decoder.h"
#include "receiver/tables/guide_tables.h"
#include "receiver/tables/rating_region.h"
#include "receiver/tables/rating_region_collector.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Takes the sections of one stream. The memory for its guide is bounded. One thread.
class PsipDecoder {
 public:
  // Returns whether push() uses sections of a PID (13 bits). The MGT adds PIDs.
  bool wants(uint16_t pid) const { return pid == kPsipBasePid || guide_.wants(pid); }

  // Takes a section; ignores other tables. Returns null, or the fault for which the section or a
  // descriptor in it was dropped.
  const char* push(const Section& section);

  // Reports that the stream ended and begins anew. With the second end since the MGT announced the
  // tables of a PID, everything that is sent on the PID has come.
  void endPass() { guide_.endPass(); }
  // Stops waiting for PIDs on which nothing came since the MGT announced them.
  void giveUpSilent() { guide_.giveUpSilent(); }

  // Return what arrived since the last call of the same function.
  std::optional<SystemTime> takeSystemTime();
  std::optional<EmergencyAlert> takeAlert();  // repeated or not
  std::vector<RatingRegionTable> takeRatingRegions() { return ratingRegions_.take(); }
  // Returns whether an EIT or ETT was completed with new content or removed, or the MGT announces
  // other tables.
  bool takeGuideChange() { return guide_.takeChange(); }

  // Returns the offset of the last system time; none before the first.
  std::optional<uint8_t> gpsUtcOffset() const { return offset_; }

  const GuideTables& guide() { return guide_.tables(); }

  // Returns whether an MGT was received and the EITs and ETTs that it announces. A PID counts as
  // received when it has repeated itself, or when nothing more is to come on it.
  bool guideComplete() const { return guide_.isComplete(); }
  // Returns whether an MGT was received, and of every EIT and ETT all that is on the air.
  bool guideSettled() const { return guide_.isSettled(); }

 private:
  const char* pushSystemTime(const Section& section);
  const char* pushAlert(const Section& section);

  GuideDecoder guide_;
  std::optional<SystemTime> time_;
  std::optional<uint8_t> offset_;
  std::optional<EmergencyAlert> alert_;
  RatingRegionCollector ratingRegions_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
