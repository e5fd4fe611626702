// The state that LiveTuner shares with its thread.
#ifndef ATSC_HOST_RECEIVER_TUNERS_TUNING_H_
#define ATSC_HOST_RECEIVER_TUNERS_TUNING_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "process/mutex.h"
#include "receiver/station/service.h"
#include "receiver/tables/carrier_tables.h"
#include "receiver/tuners/tuner_environment.h"

namespace atschost {

// Guarded by its mutex, which is held while events are raised and is taken before the mutexes of
// service list and guide.
struct TunedState {
  mutable Mutex mutex;
  CondVar changed;
  std::optional<ServiceKey> service GUARDED_BY(mutex);  // being played
  uint64_t tuning GUARDED_BY(mutex) = 0;                // number of the present tuning
  std::optional<bool> locked GUARDED_BY(mutex);         // none until the carrier was looked for
  bool headRead GUARDED_BY(mutex) = false;              // the tables of this tuning were read
  std::map<uint16_t, std::vector<Advisory>> advisories GUARDED_BY(mutex);  // by program number

  std::atomic<unsigned> serviceRounds{0};  // number of calls of LiveTuner::reapplyServices()
};

// The view that the thread has of one tuning, from play() until the carrier is left. Every function
// does nothing once the carrier has been left. One thread.
class Tuning {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  // `service` is played in the tuning with this number.
  Tuning(const TunerEnvironment& environment, TunedState& state, const ServiceKey& service,
         uint64_t number)
      : environment_(environment),
        state_(state),
        source_(service.source),
        frequency_(service.frequency),
        number_(number) {}

  const TunerEnvironment& environment() const { return environment_; }
  uint32_t source() const { return source_; }
  uint32_t frequency() const { return frequency_; }
  unsigned serviceRounds() const { return state_.serviceRounds; }

  // Runs an action under the mutex, so that the carrier is not left meanwhile. The action must not
  // call functions that take the mutex.
  template <typename Action>
  void whileTuned(Action action) {
    const MutexLock lock(state_.mutex);
    if (isCurrent()) action();
  }

  bool isTuned() const;
  // Returns the service that is played; none once the carrier has been left.
  std::optional<ServiceKey> service() const;
  // Waits until an instant, at most until the carrier is left.
  void pauseUntil(Instant instant);
  void raise(AFW_event_t event);

  // Reports whether there is a signal: with events if that changed.
  void setLocked(bool locked);
  // Records that the tables at the beginning of the stream were read.
  void setHeadRead();
  // Takes over how PMTs rate their programs. Drops the ratings of programs that the PAT does not
  // list; with `whole`, also of those without a PMT.
  void updateAdvisories(const CarrierTables& tables, bool whole);

 private:
  bool isCurrent() const REQUIRES(state_.mutex) { return state_.tuning == number_; }

  const TunerEnvironment& environment_;
  TunedState& state_;
  const uint32_t source_;
  const uint32_t frequency_;
  const uint64_t number_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_TUNING_H_
