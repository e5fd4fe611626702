// The receiver's clock.
#ifndef ATSC_HOST_RECEIVER_STATION_CLOCK_H_
#define ATSC_HOST_RECEIVER_STATION_CLOCK_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "aist.h"
#include "process/mutex.h"
#include "receiver/air/air.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Unix time of the station that is tuned, of the PC before any. A stream that is read in a loop
// repeats its system time: only its first table sets the station's time, which runs on from there.
// Streams that begin at the same time, within a second, were made together: when the first one of
// them is read, all begin. Any thread.
class Clock {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // Unix seconds.
  uint32_t now(Instant at = std::chrono::steady_clock::now()) const;

  // From now on the clock is the program's: it starts at a time and runs.
  void set(uint32_t unixSeconds, Instant at = std::chrono::steady_clock::now());

  // The viewer's choices; kept by the receiver's settings.
  struct Setting {
    int32_t zone = AIST_ZONE_EASTERN;
    bool automatic = true;  // false: the clock runs on by itself, no system time table moves it
  };
  Setting setting() const;
  void setSetting(const Setting& setting);
  // One of them, the other as it is.
  void setZone(int32_t zone);
  void setAutomatic(bool automatic);

  // A system time table of any stream was received.
  void remember(const StreamId& stream, const SystemTime& time, Instant at);

  struct Effect {
    bool detailsChanged = false;  // offset to UTC or daylight saving
    bool timeChanged = false;     // these, or the clock jumped by 2 s or more
  };
  // One of the tuned stream, whose station's time the clock takes over unless it is the program's
  // or the viewer's.
  Effect follow(const StreamId& stream, const SystemTime& time, Instant at);

  // GPS seconds of a stream's station; none before its first system time table.
  std::optional<uint32_t> stationTime(const StreamId& stream, Instant at) const;

  // The system time table that the clock followed last; none before the first one.
  std::optional<SystemTime> lastTable() const;

 private:
  struct Station {
    StreamId stream;
    uint32_t gpsSeconds = 0;
    Instant at;  // when it was that time
  };
  struct Base {
    uint32_t unixSeconds = 0;
    Instant at;
  };

  Station& stationOf(const StreamId& stream, const SystemTime& time, Instant at) REQUIRES(mutex_);
  uint32_t nowLocked(Instant at) const REQUIRES(mutex_);

  mutable Mutex mutex_;
  std::map<std::string, Station> stations_ GUARDED_BY(mutex_);  // by path
  std::optional<Base> base_ GUARDED_BY(mutex_);
  bool set_ GUARDED_BY(mutex_) = false;
  Setting setting_ GUARDED_BY(mutex_);
  std::optional<SystemTime> lastTable_ GUARDED_BY(mutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_CLOCK_H_
