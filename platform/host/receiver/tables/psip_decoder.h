// Decodes the tables of a tuned stream that change while it is watched: MGT, STT, EIT, ETT and RRT
// (A/65) and the cable emergency alert (SCTE 18).
#ifndef ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_
#define ATSC_HOST_RECEIVER_TABLES_PSIP_DECODER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "receiver/tables/emergency_alert.h"
#include "receiver/tables/guide_tables.h"
#include "receiver/tables/rating_region.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Fed with the sections of one stream. What it keeps of the guide is bounded. One thread.
class PsipDecoder {
 public:
  PsipDecoder();
  ~PsipDecoder();

  // Whether sections of a PID (13 bits) are to be pushed. Grows with what the MGT announces.
  bool wants(uint16_t pid) const;

  // Takes a section; ignores other tables. Returns null, or the fault for which the section or a
  // descriptor in it was dropped.
  const char* push(const Section& section);

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
