#include "aics.h"

#include "atsc_host.h"
#include "receiver/receiver.h"
#include "receiver/stream/air.h"

using atschost::loggedStatusOf;
using atschost::memberOf;
using atschost::Receiver;
using atschost::statusOf;

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  return loggedStatusOf(
      __func__, [&] { return request && Receiver::instance().scanner().start(*request, callback); },
      memberOf(request, &AICS_search_request::search_type),
      memberOf(request, &AICS_search_request::frequency),
      memberOf(request, &AICS_search_request::source));
}

int AICS_stop_scan() {
  return loggedStatusOf(__func__, [] { return Receiver::instance().scanner().stop(); });
}

void ATSC_host_set_air(const char* folder) {
  statusOf(__func__, [&] {
    atschost::setAirFolder(folder ? folder : "");
    return true;
  });
}

void ATSC_host_set_dwell(unsigned int milliseconds) { atschost::setDwell(milliseconds); }

void ATSC_host_set_fast(int fast) { atschost::setFast(fast != 0); }
