// Emergency alerts (SCTE 18) of the tuned carrier: reports their start and end.
#ifndef ATSC_HOST_RECEIVER_EVENTS_ALERTS_H_
#define ATSC_HOST_RECEIVER_EVENTS_ALERTS_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "process/mutex.h"
#include "receiver/events/event_queue.h"
#include "receiver/tables/emergency_alert.h"

namespace atschost {

// The user's choice of alerts; see the functions of AIFW. Any thread.
class AlertSettings {
 public:
  struct Values {
    int32_t level = AIFW_EAS_ALL;
    int32_t repeatedEvents = 0;  // 1: an event is reported again for each sequence number
    int32_t cableOnly = 0;
  };

  Values get() const {
    const MutexLock lock(mutex_);
    return values_;
  }
  void set(const Values& values) {
    const MutexLock lock(mutex_);
    values_ = values;
  }
  void set(int32_t Values::*which, int32_t value) {
    const MutexLock lock(mutex_);
    values_.*which = value;
  }

 private:
  mutable Mutex mutex_;
  Values values_ GUARDED_BY(mutex_);
};

// Handles the alerts of one tuning. Use on one thread.
class Alerts {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // `source` is the source of the carrier.
  Alerts(EventQueue& events, const AlertSettings& settings, uint32_t source)
      : events_(events), settings_(settings), source_(source) {}

  // Handles a received alert, new or repeated. A new, wanted alert replaces the present alert
  // unless that has a higher priority. Starts at most one new alert a second; a later alert waits
  // for check() or is replaced by a newer one. Ignores alerts that are not wanted, test messages,
  // and alerts of lower priority, as long as this is the case. `stationTime` is in GPS seconds,
  // where known.
  void receive(const EmergencyAlert& alert, Instant at, std::optional<uint32_t> stationTime);

  // Starts the waiting alert. Ends the present alert when its time is over or it is no longer
  // wanted.
  void check(Instant at, std::optional<uint32_t> stationTime);

  // Called when the tuner leaves or loses the carrier. Alerts that are on the air later start
  // again.
  void stop();

 private:
  struct Present {
    uint8_t priority = 0;
    size_t sequence = 0;  // index in shown_
    size_t event = 0;     // value in reported_
    Instant start, lastSeen;
    std::chrono::seconds remaining{0};  // 0: until the table is gone or the event is over
    std::optional<uint32_t> eventEnd;   // GPS seconds
  };

  bool isWanted(uint8_t priority, const AlertSettings::Values& settings) const;
  void forget(const Present& alert);
  void endPresent();

  EventQueue& events_;
  const AlertSettings& settings_;
  const uint32_t source_;
  std::optional<Instant> lastNew_;
  std::optional<EmergencyAlert> waiting_;
  std::optional<Present> present_;
  std::array<std::optional<uint64_t>, 32> shown_;  // hash of the content, by sequence number
  std::deque<size_t> reported_;                    // hashes of the events, the oldest first
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_EVENTS_ALERTS_H_
