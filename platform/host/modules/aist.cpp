#include "aist.h"

#include "atsc_host.h"
#include "receiver/receiver.h"
#include "receiver/station/clock.h"
#include "receiver/station/local_time.h"

using atschost::Clock;
using atschost::logged_status_of;
using atschost::Receiver;
using atschost::utc_offset;

int AIST_get_cur_time_secs(uint32_t* seconds) {
  const auto read = [&] {
    if (!seconds) return false;
    *seconds = Clock::instance().now();
    return true;
  };
  return logged_status_of(__func__, read, seconds);
}

// The receiver comes first in each of the following: it loads the setting.

int AIST_manual_mode_enable(int manual) {
  const auto set = [&] {
    Receiver& receiver = Receiver::instance();
    Clock::instance().set_automatic(manual == 0);
    return receiver.keep_settings();
  };
  return logged_status_of(__func__, set, manual);
}

int AIST_set_current_time_zone(int32_t zone) {
  const auto set = [&] {
    if (!atschost::is_zone(zone)) return false;
    Receiver& receiver = Receiver::instance();
    Clock::instance().set_zone(zone);
    return receiver.keep_settings();
  };
  return logged_status_of(__func__, set, zone);
}

int AIST_get_system_time_info(AIST_system_time_info* info) {
  const auto read = [&] {
    if (!info) return false;
    Receiver::instance();
    const Clock& clock = Clock::instance();
    const Clock::Setting setting = clock.setting();
    info->zone = setting.zone;
    info->offset = utc_offset(setting.zone, clock.last_table(), clock.now());
    info->mode = setting.automatic ? AIST_MODE_AUTOMATIC : AIST_MODE_MANUAL;
    return true;
  };
  return logged_status_of(__func__, read);
}

int AIST_get_cur_time_date(AIST_time_date* date) {
  const auto read = [&] {
    if (!date) return false;
    Receiver::instance();
    const Clock& clock = Clock::instance();
    const uint32_t now = clock.now();
    *date = atschost::date_at(now, utc_offset(clock.setting().zone, clock.last_table(), now));
    return true;
  };
  return logged_status_of(__func__, read);
}

void ATSC_host_set_clock(uint32_t unix_seconds) {
  const auto set = [&] {
    Clock::instance().set(unix_seconds);
    return true;
  };
  logged_status_of(__func__, set, unix_seconds);
}
