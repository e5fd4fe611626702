#include "receiver/tuners/guide_tuner.h"

#include <chrono>
#include <exception>
#include <optional>
#include <string>

#include "middleware_types.h"
#include "receiver/log.h"
#include "receiver/stream/frequency_plan.h"
#include "receiver/thread.h"

namespace atschost {
namespace {

constexpr std::chrono::seconds kInterval(1);

}  // namespace

GuideTuner::GuideTuner(ServiceList& services, Hooks hooks)
    : services_(services), hooks_(std::move(hooks)) {}

GuideTuner::~GuideTuner() { shutDown(); }

void GuideTuner::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!stop_ && !thread_.joinable()) thread_ = startThread("guide tuner", [this] { run(); });
}

bool GuideTuner::beginRound() {
  std::set<Carrier> carriers = listed();
  if (carriers.empty()) return false;
  start();
  std::lock_guard<std::mutex> lock(mutex_);
  asked_ = std::move(carriers);
  changed_.notify_all();
  return true;
}

void GuideTuner::note(uint32_t source, uint32_t frequency, const StreamId& stream) {
  std::lock_guard<std::mutex> lock(mutex_);
  seen_[{source, frequency}] = {stream, {}};
}

void GuideTuner::shutDown() {
  std::unique_lock<std::mutex> lock(mutex_);
  stop_ = true;
  changed_.notify_all();
  if (!thread_.joinable()) return;
  lock.unlock();
  thread_.join();
}

void GuideTuner::run() {
  while (!stop_) {
    try {
      round();
    } catch (const std::exception& e) {
      log().Error("guide tuner: %s", e.what());
    }
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kInterval, [this] { return stop_ || !asked_.empty(); });
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
    std::lock_guard<std::mutex> lock(mutex_);
    asked.swap(asked_);
  }
  for (const Carrier& carrier : listed()) {
    if (stop_) return;
    const auto [source, frequency] = carrier;
    const bool isAsked = asked.count(carrier) != 0;
    if (hooks_.isReceived(source, frequency) || !(isDue(carrier) || isAsked)) continue;
    try {
      CarrierResult found = readCarrier(source, frequency, stop_, isAsked);
      if (!found.known || !found.locked) continue;
      // What was replaced meanwhile is read in the next round, or has been by somebody else.
      if (!(streamId(found.stream->path) == found.stream)) continue;
      hooks_.take(source, frequency, found);
    } catch (const std::exception& e) {
      log().Error("%s %u Hz: guide: %s", modulationName(source), frequency, e.what());
    }
  }
  hooks_.roundEnded();
}

// Whether the carrier's file is not the one that was read. A file that is being written counts once
// it stays as it is.
bool GuideTuner::isDue(const Carrier& carrier) {
  const std::string path = carrierPath(carrier.first, carrier.second);
  const auto present = path.empty() ? std::nullopt : streamId(path);
  std::lock_guard<std::mutex> lock(mutex_);
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
  // Read or not, it is not tried again before it changes.
  seen.read = *present;
  return true;
}

}  // namespace atschost
