// Emergency alerts (SCTE 18) of the tuned carrier: when one starts and when it ends.
#ifndef ATSC_HOST_RECEIVER_ALERTS_H_
#define ATSC_HOST_RECEIVER_ALERTS_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

#include "receiver/event_queue.h"
#include "receiver/psip_decoder.h"

namespace atschost {

// For one tuning. One thread.
class Alerts {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  explicit Alerts(EventQueue& events) : events_(events) {}

  // One was received, first time or not. A new one takes the place of the present alert, at most
  // once a second: else it waits for check(), or for a newer one. `station_time` in GPS seconds,
  // where known.
  void receive(const EmergencyAlert& alert, Instant at, std::optional<uint32_t> station_time);

  // Takes the alert that waits, and ends the present one when its time is over.
  void check(Instant at, std::optional<uint32_t> station_time);

  // The tuner leaves the carrier, or has lost it.
  void stop();

 private:
  struct Present {
    Instant start;
    std::chrono::seconds remaining{0};  // 0: until the table is gone or the event is over
    std::optional<uint32_t> event_end;  // GPS seconds
  };

  void end_present();

  EventQueue& events_;
  Instant last_seen_;
  std::optional<Instant> last_new_;
  std::optional<EmergencyAlert> waiting_;
  std::optional<Present> present_;
  std::array<std::optional<uint64_t>, 32> shown_;  // hash of the content, by sequence number
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_ALERTS_H_
