// Sets the clock after the system time of the tuned stream.
#ifndef ATSC_HOST_RECEIVER_TUNERS_TIME_REPORTER_H_
#define ATSC_HOST_RECEIVER_TUNERS_TIME_REPORTER_H_

#include <cstdint>
#include <optional>

#include "receiver/tables/system_time.h"
#include "receiver/tuners/tuning.h"

namespace atschost {

// For one content of the carrier's file. One thread.
class TimeReporter {
 public:
  TimeReporter(Tuning& tuning, StreamId stream);

  // Takes a system time that was received, and calls update().
  void receive(const SystemTime& time);

  // Sets the clock after the last system time that was received, at most once a second, and raises
  // the events of the changes.
  void update();

  // Returns the time of the station, GPS seconds; none before its first system time.
  std::optional<uint32_t> stationTime() const;

 private:
  Tuning& tuning_;
  const StreamId stream_;
  std::optional<SystemTime> received_;  // not used yet
  Tuning::Instant next_;                // of the next update at the earliest
  bool raised_ = false;                 // AFW_STT_UPDATE, for this stream
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_TIME_REPORTER_H_
