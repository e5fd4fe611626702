#include "aist.h"

#include "atsc_host.h"
#include "receiver/clock.h"
#include "receiver/receiver.h"

using atschost::Clock;
using atschost::status_of;

int AIST_get_cur_time_secs(uint32_t* seconds) {
  return status_of(__func__, [&] {
    if (!seconds) return false;
    *seconds = Clock::instance().now();
    return true;
  });
}

void ATSC_host_set_clock(uint32_t unix_seconds) {
  status_of(__func__, [&] {
    Clock::instance().set(unix_seconds);
    return true;
  });
}
