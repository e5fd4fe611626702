#include "receiver/tuners/tuning.h"

#include <iterator>

#include "process/log.h"
#include "receiver/air/frequency_plan.h"

namespace atschost {

bool Tuning::isTuned() const {
  const MutexLock lock(state_.mutex);
  return isCurrent();
}

std::optional<ServiceKey> Tuning::service() const {
  const MutexLock lock(state_.mutex);
  return isCurrent() ? state_.service : std::nullopt;
}

void Tuning::pauseUntil(Instant instant) {
  MutexLock lock(state_.mutex);
  while (isCurrent() && state_.changed.waitUntil(lock, instant)) {
  }
}

void Tuning::raise(AFW_event_t event) {
  whileTuned([&] { environment_.events.raise(event); });
}

void Tuning::setLocked(bool locked) {
  const MutexLock lock(state_.mutex);
  if (!isCurrent() || state_.locked == locked) return;
  state_.locked = locked;
  if (!locked) {
    state_.advisories.clear();
    state_.headRead = false;
  }
  log().Info("%s %u Hz: %s", modulationName(source_), frequency_, locked ? "locked" : "no signal");
  environment_.events.raise(locked ? AFW_TUNER_LOCKED : AFW_TUNER_UNLOCKED);
  environment_.events.raise(locked ? AFW_CHANNEL_PLAY_SUCCESS : AFW_CHANNEL_PLAY_FAILURE);
}

void Tuning::setHeadRead() {
  const MutexLock lock(state_.mutex);
  if (isCurrent()) state_.headRead = true;
}

void Tuning::updateAdvisories(const CarrierTables& tables, bool whole) {
  const MutexLock lock(state_.mutex);
  if (!isCurrent()) return;
  auto& known = state_.advisories;
  if (whole) known.clear();
  for (auto it = known.begin(); it != known.end();)
    it = tables.pat && !tables.pat->pmtPids.count(it->first) ? known.erase(it) : std::next(it);
  for (const auto& [program, streams] : tables.pmts) known.erase(program);
  for (const auto& [program, advisories] : tables.advisories) known[program] = advisories;
}

}  // namespace atschost
