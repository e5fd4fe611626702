// Receives the carrier of the service that plays.
#ifndef ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_
#define ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_

#include <cstdint>
#include <functional>
#include <vector>

#include "process/thread.h"
#include "receiver/tuners/tuning.h"

namespace atschost {

// Reads the stream on a thread of its own, again and again, and raises events for what it carries:
// lock, time, guide, changed services, alerts, rating regions. The tables are read first, as fast
// as the file allows, so that a viewer need not wait. Then the stream is read at its own pace, or
// with Air::setFast() as fast as possible with a pause after each pass. A file that is replaced,
// removed or put back is noticed within a second. Any thread.
class LiveTuner {
 public:
  // Both functions are called on the tuner's thread, without its mutex: `servicesChanged` after
  // each change that the carrier made to the service list, before the events of the change are
  // raised; `looked` several times a second while a carrier is tuned, since other programmes may be
  // on.
  LiveTuner(const Air& air, Clock& clock, ServiceList& services, Guide& guide,
            RatingRegions& regions, const AlertSettings& alertSettings, EventQueue& events,
            std::function<void()> servicesChanged, std::function<void()> looked);
  ~LiveTuner();

  // Tunes to the carrier of a service, unless it is tuned already.
  void play(const ServiceKey& service);
  // Raises the events of a service that cannot be played because its carrier is gone.
  void reportFailure();
  // Leaves the carrier. Its tables do not change the service list afterwards.
  void stop();

  // Applies the services of the carrier again, after the service list was loaded anew.
  void reapplyServices() { ++state_.serviceRounds; }

  bool isTunedTo(uint32_t source, uint32_t frequency) const;

  // Returns how the PMT of a service rates the present programme; nothing unless the carrier of the
  // service is tuned.
  std::vector<Advisory> advisories(const ServiceKey& service, uint16_t programNumber) const;
  // Returns whether the carrier of a service is tuned and its tables were read or it has no signal.
  bool hasRead(const ServiceKey& service) const;

  // Stops for good and joins the thread.
  void shutDown();

 private:
  void run();
  bool isTunedToLocked(uint32_t source, uint32_t frequency) const REQUIRES(state_.mutex);
  void leaveCarrier() REQUIRES(state_.mutex);

  const TunerEnvironment environment_;
  TunedState state_;
  Thread thread_;  // started under the mutex
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_LIVE_TUNER_H_
