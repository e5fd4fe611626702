// AIST: receiver clock, which is the system clock.
#include <ctime>

#include "aist.h"
#include "set.h"

namespace minimal {

namespace {

// Offsets of the zones from UTC in minutes, without daylight saving time.
constexpr int32_t kOffsets[] = {540, 480, 0, -210, -240, -300, -360, -420, -480, -540, -600, -600};
constexpr int32_t kZones = sizeof kOffsets / sizeof kOffsets[0];

int32_t zone() {
  const int32_t stored = setting("time_zone", AIST_ZONE_EASTERN);
  return stored >= 0 && stored < kZones ? stored : AIST_ZONE_EASTERN;
}

}  // namespace

uint32_t utcSeconds() { return static_cast<uint32_t>(std::time(nullptr)); }

}  // namespace minimal

using namespace minimal;

int AIST_get_cur_time_secs(uint32_t* seconds) {
  if (seconds == nullptr) return kFailure;
  *seconds = utcSeconds();
  return kSuccess;
}

// Stores the mode. Both modes use the system clock.
int AIST_manual_mode_enable(int manual) {
  return changeSettings({{"time_manual", manual != 0}}) ? kSuccess : kFailure;
}

int AIST_set_current_time_zone(int32_t zone) {
  if (zone < 0 || zone >= kZones) return kFailure;
  return changeSettings({{"time_zone", zone}}) ? kSuccess : kFailure;
}

int AIST_get_system_time_info(AIST_system_time_info* info) {
  if (info == nullptr) return kFailure;
  info->zone = zone();
  info->offset = kOffsets[zone()];
  info->mode = setting("time_manual", 0) != 0 ? AIST_MODE_MANUAL : AIST_MODE_AUTOMATIC;
  return kSuccess;
}

int AIST_get_cur_time_date(AIST_time_date* date) {
  if (date == nullptr) return kFailure;
  const std::time_t local = static_cast<std::time_t>(utcSeconds()) + kOffsets[zone()] * 60;
  std::tm parts = {};
  if (gmtime_r(&local, &parts) == nullptr) return kFailure;
  date->year = static_cast<uint16_t>(parts.tm_year + 1900);
  date->month = static_cast<uint8_t>(parts.tm_mon + 1);
  date->mday = static_cast<uint8_t>(parts.tm_mday);
  date->hour = static_cast<uint8_t>(parts.tm_hour);
  date->minute = static_cast<uint8_t>(parts.tm_min);
  date->second = static_cast<uint8_t>(parts.tm_sec);
  return kSuccess;
}
