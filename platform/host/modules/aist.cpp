#include "aist.h"

#include "atsc_host.h"
#include "receiver/receiver.h"
#include "receiver/station/clock.h"
#include "receiver/station/local_time.h"

using atschost::Clock;
using atschost::loggedStatusOf;
using atschost::Receiver;
using atschost::utcOffset;

int AIST_get_cur_time_secs(uint32_t* seconds) {
  const auto read = [&] {
    if (!seconds) return false;
    *seconds = Clock::instance().now();
    return true;
  };
  return loggedStatusOf(__func__, read, seconds);
}

// The receiver comes first in each of the following: it loads the setting.

int AIST_manual_mode_enable(int manual) {
  const auto set = [&] {
    Receiver& receiver = Receiver::instance();
    Clock::instance().setAutomatic(manual == 0);
    return receiver.keepSettings();
  };
  return loggedStatusOf(__func__, set, manual);
}

int AIST_set_current_time_zone(int32_t zone) {
  const auto set = [&] {
    if (!atschost::isZone(zone)) return false;
    Receiver& receiver = Receiver::instance();
    Clock::instance().setZone(zone);
    return receiver.keepSettings();
  };
  return loggedStatusOf(__func__, set, zone);
}

int AIST_get_system_time_info(AIST_system_time_info* info) {
  const auto read = [&] {
    if (!info) return false;
    Receiver::instance();
    const Clock& clock = Clock::instance();
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
    Receiver::instance();
    const Clock& clock = Clock::instance();
    const uint32_t now = clock.now();
    *date = atschost::dateAt(now, utcOffset(clock.setting().zone, clock.lastTable(), now));
    return true;
  };
  return loggedStatusOf(__func__, read);
}

void ATSC_host_set_clock(uint32_t unixSeconds) {
  const auto set = [&] {
    Clock::instance().set(unixSeconds);
    return true;
  };
  loggedStatusOf(__func__, set, unixSeconds);
}
