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

// The time of the tuned station. Until a station's time is received, the time of the PC. A stream
// that is read in a loop repeats its system time. Therefore only its first table sets the station's
// time, which runs on from there. Streams with the same first time, within a second, were made
// together: when the first of them is read, the times of all start. Any thread.
class Clock {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // Returns the time in Unix seconds.
  uint32_t now(Instant at = std::chrono::steady_clock::now()) const;

  // Sets the clock, which runs on from this time. System time tables no longer change it.
  void set(uint32_t unixSeconds, Instant at = std::chrono::steady_clock::now());

  // The viewer's choices. Settings stores them.
  struct Setting {
    int32_t zone = AIST_ZONE_EASTERN;
    bool automatic = true;  // false: system time tables do not change the clock
  };
  Setting setting() const;
  void setSetting(const Setting& setting);
  // Set one value and leave the other unchanged.
  void setZone(int32_t zone);
  void setAutomatic(bool automatic);

  // Handles a system time table of any stream.
  void remember(const StreamId& stream, const SystemTime& time, Instant at);

  struct Effect {
    bool detailsChanged = false;  // offset to UTC or daylight saving
    bool timeChanged = false;     // one of these, or the clock jumped by 2 s or more
  };
  // Handles a system time table of the tuned stream: sets the clock to the station's time, unless
  // the program or the viewer controls the clock.
  Effect follow(const StreamId& stream, const SystemTime& time, Instant at);

  // Returns the time of a stream's station in GPS seconds; nullopt before its first system time
  // table.
  std::optional<uint32_t> stationTime(const StreamId& stream, Instant at) const;

  // Returns the last table that follow() received; nullopt before the first.
  std::optional<SystemTime> lastTable() const;

 private:
  struct Station {
    StreamId stream;
    uint32_t gpsSeconds = 0;
    Instant at;  // when the station had this time
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
