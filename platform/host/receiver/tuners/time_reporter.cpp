#include "receiver/tuners/time_reporter.h"

#include <utility>

namespace atschost {
namespace {

constexpr std::chrono::seconds kTimeInterval(1);

}  // namespace

TimeReporter::TimeReporter(Tuning& tuning, StreamId stream)
    : tuning_(tuning), stream_(std::move(stream)) {}

void TimeReporter::receive(const SystemTime& time) {
  received_ = time;
  update();
}

void TimeReporter::update() {
  const auto now = std::chrono::steady_clock::now();
  if (!received_ || now < next_) return;
  next_ = now + kTimeInterval;
  const SystemTime time = *std::exchange(received_, std::nullopt);
  const TunerEnvironment& environment = tuning_.environment();
  tuning_.whileTuned([&] {
    const Clock::Effect effect = environment.clock.follow(stream_, time, now);
    if (!raised_ || effect.detailsChanged) environment.events.raiseTime(AFW_STT_UPDATE, time);
    if (effect.timeChanged) environment.events.raiseTime(AFW_TIME_CHANGE, time);
    raised_ = true;
  });
}

std::optional<uint32_t> TimeReporter::stationTime() const {
  return tuning_.environment().clock.stationTime(stream_, std::chrono::steady_clock::now());
}

}  // namespace atschost
