// Receives the carrier of the service that plays.
#ifndef ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_
#define ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "process/thread.h"
#include "receiver/air/air.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/clock.h"
#include "receiver/station/guide.h"
#include "receiver/station/service.h"
#include "receiver/station/service_list.h"
#include "receiver/viewing/rating_regions.h"

namespace atschost {

// Reads the stream on a thread of its own, again and again, and raises events for what it tells:
// lock, time, guide, changed services, alerts, rating regions. What comes first, the tables, is
// read as fast as the file allows, so that a viewer need not wait; then the stream goes at its own
// pace, or as fast as it can be read with a pause after each time (Air::setFast()). A file that is
// replaced, removed or put back is noticed within a second. Any thread.
class LiveTuner {
 public:
  // `services_changed` is told, on the tuner's thread and without its lock, of each change that the
  // carrier has made to the service list, before the events are; `looked` likewise, several times a
  // second while a carrier is tuned: other programmes may be on.
  LiveTuner(const Air& air, Clock& clock, ServiceList& services, Guide& guide,
            RatingRegions& regions, const AlertSettings& alertSettings, EventQueue& events,
            std::function<void()> servicesChanged, std::function<void()> looked);
  ~LiveTuner();

  // Tunes to the carrier of a service. Where it is tuned already it stays so.
  void play(const ServiceKey& service);
  // A service was not tuned to: its carrier is gone.
  void reportFailure();
  // Leaves the carrier. No table of it changes the service list afterwards.
  void stop();

  // The service list was read anew: the carrier tells it again what it has.
  void tellServices() { ++serviceRounds_; }

  bool isTunedTo(uint32_t source, uint32_t frequency) const;

  // How the PMT of a service rates what is on: nothing unless its carrier is tuned.
  std::vector<Advisory> advisories(const ServiceKey& service, uint16_t programNumber) const;
  // Whether the carrier of a service is tuned and its tables have been read, or nothing is
  // received.
  bool hasRead(const ServiceKey& service) const;

  // Stops for good and joins the thread.
  void shutDown();

 private:
  class Session;
  class Stream;

  void run();
  void forgetCarrier();

  const Air& air_;
  Clock& clock_;
  ServiceList& services_;
  Guide& guide_;
  RatingRegions& regions_;
  const AlertSettings& alertSettings_;
  EventQueue& events_;
  const std::function<void()> servicesChanged_;
  const std::function<void()> looked_;

  std::atomic<unsigned> serviceRounds_{0};  // how often tellServices() was called
  mutable std::mutex mutex_;  // of all below; taken before those of service list and guide
  std::condition_variable changed_;
  std::optional<ServiceKey> service_;  // being played
  uint64_t tuning_ = 0;                // number of the present tuning, another one after each stop
  std::optional<bool> locked_;         // not known yet after tuning
  bool headRead_ = false;              // the tables that come first, of this tuning
  std::map<uint16_t, std::vector<Advisory>> advisories_;  // by program number, of the PMTs
  Thread thread_;                                         // started under the mutex
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_
