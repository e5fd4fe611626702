#include "receiver/station/clock.h"

#include <ctime>
#include <tuple>

namespace atschost {
namespace {

// All arithmetic is modulo 2^32, because a broadcast can send any system time.
uint32_t secondsBetween(Clock::Instant from, Clock::Instant to) {
  return static_cast<uint32_t>(std::chrono::floor<std::chrono::seconds>(to - from).count());
}

auto details(const SystemTime& time) {
  return std::tie(time.gpsUtcOffset, time.daylightStatus, time.daylightDayOfMonth,
                  time.daylightHour);
}

}  // namespace

uint32_t Clock::now(Instant at) const {
  const MutexLock lock(mutex_);
  return nowLocked(at);
}

uint32_t Clock::nowLocked(Instant at) const {
  if (!base_) return static_cast<uint32_t>(std::time(nullptr));
  return base_->unixSeconds + secondsBetween(base_->at, at);
}

void Clock::set(uint32_t unixSeconds, Instant at) {
  const MutexLock lock(mutex_);
  base_ = Base{unixSeconds, at};
  set_ = true;
}

Clock::Setting Clock::setting() const {
  const MutexLock lock(mutex_);
  return setting_;
}

void Clock::setSetting(const Setting& setting) {
  const MutexLock lock(mutex_);
  setting_ = setting;
}

void Clock::setZone(int32_t zone) {
  const MutexLock lock(mutex_);
  setting_.zone = zone;
}

void Clock::setAutomatic(bool automatic) {
  const MutexLock lock(mutex_);
  setting_.automatic = automatic;
}

Clock::Station& Clock::stationOf(const StreamId& stream, const SystemTime& time, Instant at) {
  const auto known = stations_.find(stream.path);
  if (known != stations_.end() && known->second.stream == stream) return known->second;
  for (const auto& [path, other] : stations_) {
    const uint32_t ahead = time.gpsSeconds - other.gpsSeconds;
    if (ahead + 1 <= 2) at = other.at;  // by -1, 0 or 1
  }
  return stations_[stream.path] = {stream, time.gpsSeconds, at};
}

void Clock::remember(const StreamId& stream, const SystemTime& time, Instant at) {
  const MutexLock lock(mutex_);
  stationOf(stream, time, at);
}

Clock::Effect Clock::follow(const StreamId& stream, const SystemTime& time, Instant at) {
  const MutexLock lock(mutex_);
  const Station& station = stationOf(stream, time, at);
  Effect effect;
  effect.detailsChanged = lastTable_ && details(*lastTable_) != details(time);
  lastTable_ = time;
  if (set_) return effect;
  if (!setting_.automatic) {
    effect.timeChanged = effect.detailsChanged;
    return effect;
  }
  SystemTime first = time;
  first.gpsSeconds = station.gpsSeconds;
  const uint32_t before = nowLocked(at);
  base_ = Base{first.unixSeconds(), station.at};
  const uint32_t ahead = nowLocked(at) - before;
  const bool jumped = ahead + 1 > 2;  // neither -1, 0 nor 1
  effect.timeChanged = effect.detailsChanged || jumped;
  return effect;
}

std::optional<uint32_t> Clock::stationTime(const StreamId& stream, Instant at) const {
  const MutexLock lock(mutex_);
  const auto found = stations_.find(stream.path);
  if (found == stations_.end() || !(found->second.stream == stream)) return std::nullopt;
  return found->second.gpsSeconds + secondsBetween(found->second.at, at);
}

std::optional<SystemTime> Clock::lastTable() const {
  const MutexLock lock(mutex_);
  return lastTable_;
}

}  // namespace atschost
