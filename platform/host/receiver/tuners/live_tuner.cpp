#include "receiver/tuners/live_tuner.h"

#include <exception>
#include <utility>

#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/tuners/live_session.h"

namespace atschost {

LiveTuner::LiveTuner(const Air& air, Clock& clock, ServiceList& services, Guide& guide,
                     RatingRegions& regions, const AlertSettings& alertSettings, EventQueue& events,
                     std::function<void()> servicesChanged, std::function<void()> looked)
    : environment_{air,
                   clock,
                   services,
                   guide,
                   regions,
                   alertSettings,
                   events,
                   std::move(servicesChanged),
                   std::move(looked)} {}

LiveTuner::~LiveTuner() { shutDown(); }

void LiveTuner::play(const ServiceKey& service) {
  const MutexLock lock(state_.mutex);
  if (thread_.isEnding()) return;
  const bool same = isTunedToLocked(service.source, service.frequency);
  state_.service = service;
  if (same) {
    if (state_.locked)
      environment_.events.raise(*state_.locked ? AFW_CHANNEL_PLAY_SUCCESS
                                               : AFW_CHANNEL_PLAY_FAILURE);
    return;
  }
  leaveCarrier();
  thread_.start("live tuner", [this] { run(); });
}

void LiveTuner::reportFailure() {
  const MutexLock lock(state_.mutex);
  if (!state_.service) environment_.events.raise(AFW_TUNER_UNLOCKED);
  environment_.events.raise(AFW_CHANNEL_PLAY_FAILURE);
}

void LiveTuner::stop() {
  const MutexLock lock(state_.mutex);
  if (!state_.service) return;
  state_.service.reset();
  leaveCarrier();
}

// Ends the present tuning.
void LiveTuner::leaveCarrier() {
  ++state_.tuning;
  state_.locked.reset();
  state_.headRead = false;
  state_.advisories.clear();
  state_.changed.notifyAll();
}

bool LiveTuner::isTunedTo(uint32_t source, uint32_t frequency) const {
  const MutexLock lock(state_.mutex);
  return isTunedToLocked(source, frequency);
}

bool LiveTuner::isTunedToLocked(uint32_t source, uint32_t frequency) const {
  return state_.service && state_.service->source == source &&
         state_.service->frequency == frequency;
}

std::vector<Advisory> LiveTuner::advisories(const ServiceKey& service,
                                            uint16_t programNumber) const {
  const MutexLock lock(state_.mutex);
  if (!isTunedToLocked(service.source, service.frequency)) return {};
  const auto found = state_.advisories.find(programNumber);
  return found == state_.advisories.end() ? std::vector<Advisory>() : found->second;
}

bool LiveTuner::hasRead(const ServiceKey& service) const {
  const MutexLock lock(state_.mutex);
  return isTunedToLocked(service.source, service.frequency) &&
         (state_.headRead || state_.locked == false);
}

void LiveTuner::shutDown() {
  {
    const MutexLock lock(state_.mutex);
    thread_.askToEnd();
    state_.service.reset();
    leaveCarrier();
  }
  thread_.join();
}

void LiveTuner::run() {
  MutexLock lock(state_.mutex);
  for (;;) {
    while (!thread_.isEnding() && !state_.service) state_.changed.wait(lock);
    if (thread_.isEnding()) return;
    const uint64_t number = state_.tuning;
    const ServiceKey service = *state_.service;
    lock.unlock();
    bool failed = false;
    try {
      Tuning tuning(environment_, state_, service, number);
      receiveCarrier(tuning);
    } catch (const std::exception& e) {
      log().Error("%s %u Hz: receiving ended: %s", modulationName(service.source),
                  service.frequency, e.what());
      failed = true;
    }
    lock.lock();
    while (failed && state_.tuning == number) state_.changed.wait(lock);
  }
}

}  // namespace atschost
