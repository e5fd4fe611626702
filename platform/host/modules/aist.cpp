#include "aist.h"

#include "modules/call.h"
#include "modules/host.h"
#include "receiver/station/clock.h"
#include "receiver/station/local_time.h"

using atschost::Clock;
using atschost::hostReceiver;
using atschost::loggedStatusOf;
using atschost::utcOffset;

int AIST_get_cur_time_secs(uint32_t* seconds) {
  const auto read = [&] {
    if (!seconds) return false;
    *seconds = atschost::hostClock().now();
    return true;
  };
  return loggedStatusOf(__func__, read, seconds);
}

// The following functions use the settings, which the receiver loads.

int AIST_manual_mode_enable(int manual) {
  const auto set = [&] {
    hostReceiver().clock().setAutomatic(manual == 0);
    return hostReceiver().settings().keep();
  };
  return loggedStatusOf(__func__, set, manual);
}

int AIST_set_current_time_zone(int32_t zone) {
  const auto set = [&] {
    if (!atschost::isZone(zone)) return false;
    hostReceiver().clock().setZone(zone);
    return hostReceiver().settings().keep();
  };
  return loggedStatusOf(__func__, set, zone);
}

int AIST_get_system_time_info(AIST_system_time_info* info) {
  const auto read = [&] {
    if (!info) return false;
    const Clock& clock = hostReceiver().clock();
    const Clock::Setting setting = clock.setting();
    info->zone = setting.zone;
    info->offset = utcOffset(setting.zone, clock.lastTable(), clock.now());
    info->mode = setting.automatic ? AIST_MODE_AUTOMATIC : AIST_MODE_MANUAL;
    return true;
  };
  return loggedStatusOf(__func__, read);
}

int AIST_get_cur_time_date(AIST_time_date* date) {
  const auto read = [&] {
    if (!date) return false;
    const Clock& clock = hostReceiver().clock();
    const uint32_t now = clock.now();
    *date = atschost::dateAt(now, utcOffset(clock.setting().zone, clock.lastTable(), now));
    return true;
  };
  return loggedStatusOf(__func__, read);
}
