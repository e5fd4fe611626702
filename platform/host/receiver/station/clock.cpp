#include "receiver/station/clock.h"

#include <ctime>
#include <tuple>

namespace atschost {
namespace {

// All arithmetic is modulo 2^32: a broadcast may send any system time.
uint32_t seconds_between(Clock::Instant from, Clock::Instant to) {
  return static_cast<uint32_t>(std::chrono::floor<std::chrono::seconds>(to - from).count());
}

auto details(const SystemTime& time) {
  return std::tie(time.gps_utc_offset, time.daylight_status, time.daylight_day_of_month,
                  time.daylight_hour);
}

}  // namespace

Clock& Clock::instance() {
  static Clock& clock = *new Clock;
  return clock;
}

uint32_t Clock::now(Instant at) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return now_locked(at);
}

uint32_t Clock::now_locked(Instant at) const {
  if (!base_) return static_cast<uint32_t>(std::time(nullptr));
  return base_->unix_seconds + seconds_between(base_->at, at);
}

void Clock::set(uint32_t unix_seconds, Instant at) {
  std::lock_guard<std::mutex> lock(mutex_);
  base_ = Base{unix_seconds, at};
  set_ = true;
}

Clock::Setting Clock::setting() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return setting_;
}

void Clock::set_setting(const Setting& setting) {
  std::lock_guard<std::mutex> lock(mutex_);
  setting_ = setting;
}

void Clock::set_zone(int32_t zone) {
  std::lock_guard<std::mutex> lock(mutex_);
  setting_.zone = zone;
}

void Clock::set_automatic(bool automatic) {
  std::lock_guard<std::mutex> lock(mutex_);
  setting_.automatic = automatic;
}

Clock::Station& Clock::station_of(const StreamId& stream, const SystemTime& time, Instant at) {
  const auto known = stations_.find(stream.path);
  if (known != stations_.end() && known->second.stream == stream) return known->second;
  for (const auto& [path, other] : stations_) {
    const uint32_t ahead = time.gps_seconds - other.gps_seconds;
    if (ahead + 1 <= 2) at = other.at;  // by -1, 0 or 1
  }
  return stations_[stream.path] = {stream, time.gps_seconds, at};
}

void Clock::remember(const StreamId& stream, const SystemTime& time, Instant at) {
  std::lock_guard<std::mutex> lock(mutex_);
  station_of(stream, time, at);
}

Clock::Effect Clock::follow(const StreamId& stream, const SystemTime& time, Instant at) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Station& station = station_of(stream, time, at);
  Effect effect;
  effect.details_changed = last_table_ && details(*last_table_) != details(time);
  last_table_ = time;
  if (set_) return effect;
  if (!setting_.automatic) {
    effect.time_changed = effect.details_changed;
    return effect;
  }
  SystemTime first = time;
  first.gps_seconds = station.gps_seconds;
  const uint32_t before = now_locked(at);
  base_ = Base{first.unix_seconds(), station.at};
  const uint32_t ahead = now_locked(at) - before;
  const bool jumped = ahead + 1 > 2;  // neither -1, 0 nor 1
  effect.time_changed = effect.details_changed || jumped;
  return effect;
}

std::optional<uint32_t> Clock::station_time(const StreamId& stream, Instant at) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = stations_.find(stream.path);
  if (found == stations_.end() || !(found->second.stream == stream)) return std::nullopt;
  return found->second.gps_seconds + seconds_between(found->second.at, at);
}

std::optional<SystemTime> Clock::last_table() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return last_table_;
}

}  // namespace atschost
