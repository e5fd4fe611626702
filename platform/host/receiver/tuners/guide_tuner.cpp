#include "receiver/tuners/guide_tuner.h"

#include <chrono>
#include <exception>
#include <optional>
#include <string>

#include "middleware_types.h"
#include "process/log.h"
#include "process/memory.h"
#include "receiver/air/frequency_plan.h"

namespace atschost {
namespace {

constexpr std::chrono::seconds kRoundInterval(1);

}  // namespace

GuideTuner::GuideTuner(const Air& air, Clock& clock, ServiceList& services, Hooks hooks)
    : air_(air), clock_(clock), services_(services), hooks_(std::move(hooks)) {}

GuideTuner::~GuideTuner() { shutDown(); }

void GuideTuner::start() {
  const MutexLock lock(mutex_);
  thread_.start("guide tuner", [this] { run(); });
}

bool GuideTuner::beginRound() {
  std::set<Carrier> carriers = listed();
  if (carriers.empty()) return false;
  start();
  const MutexLock lock(mutex_);
  asked_ = std::move(carriers);
  changed_.notifyAll();
  return true;
}

void GuideTuner::note(uint32_t source, uint32_t frequency, const StreamId& stream) {
  const MutexLock lock(mutex_);
  seen_[{source, frequency}] = {stream, {}};
}

void GuideTuner::shutDown() {
  {
    const MutexLock lock(mutex_);
    thread_.askToEnd();
    changed_.notifyAll();
  }
  thread_.join();
}

void GuideTuner::run() {
  while (!thread_.isEnding()) {
    try {
      round();
    } catch (const std::exception& e) {
      log().Error("guide tuner: %s", e.what());
    }
    const auto next = std::chrono::steady_clock::now() + kRoundInterval;
    MutexLock lock(mutex_);
    while (!thread_.isEnding() && asked_.empty() && changed_.waitUntil(lock, next)) {
    }
  }
}

std::set<GuideTuner::Carrier> GuideTuner::listed() const {
  std::set<Carrier> carriers;
  for (const uint32_t source : {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE}) {
    services_.visit(source, [&](const Service& service) {
      carriers.insert({service.key.source, service.key.frequency});
      return true;
    });
  }
  return carriers;
}

void GuideTuner::round() {
  std::set<Carrier> asked;
  {
    const MutexLock lock(mutex_);
    asked.swap(asked_);
  }
  bool read = false;
  for (const Carrier& carrier : listed()) {
    if (thread_.isEnding()) return;
    const auto [source, frequency] = carrier;
    const bool isAsked = asked.count(carrier) != 0;
    if (hooks_.isReceived(source, frequency) || !(isDue(carrier) || isAsked)) continue;
    read = true;
    try {
      CarrierResult found =
          readCarrier(air_, clock_, source, frequency, thread_.isEnding(), isAsked);
      if (!found.known || !found.locked) continue;
      // A file that was replaced meanwhile is read in the next round, or was read by another tuner.
      if (!(streamId(found.stream->path) == found.stream)) continue;
      hooks_.take(source, frequency, found);
    } catch (const std::exception& e) {
      log().Error("%s %u Hz: guide: %s", modulationName(source), frequency, e.what());
    }
  }
  hooks_.roundEnded();
  if (read) giveBackMemory();
}

// Returns whether the carrier's file differs from the file that was read. A file that is being
// written counts when it stops changing.
bool GuideTuner::isDue(const Carrier& carrier) {
  const std::string path = air_.carrierPath(carrier.first, carrier.second);
  const auto present = path.empty() ? std::nullopt : streamId(path);
  const MutexLock lock(mutex_);
  if (!present) {
    seen_.erase(carrier);
    return false;
  }
  Seen& seen = seen_[carrier];
  if (*present == seen.read) return false;
  if (present->sameFile(seen.read) && !(*present == seen.changing)) {
    seen.changing = *present;
    return false;
  }
  // Not tried again before the file changes, even if reading fails.
  seen.read = *present;
  return true;
}

}  // namespace atschost
