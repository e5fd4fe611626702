#include "aics.h"

#include "atsc_host.h"
#include "receiver/receiver.h"
#include "receiver/stream/air.h"

using atschost::logged_status_of;
using atschost::member_of;
using atschost::Receiver;
using atschost::status_of;

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  return logged_status_of(
      __func__, [&] { return request && Receiver::instance().scanner().start(*request, callback); },
      member_of(request, &AICS_search_request::search_type),
      member_of(request, &AICS_search_request::frequency),
      member_of(request, &AICS_search_request::source));
}

int AICS_stop_scan() {
  return logged_status_of(__func__, [] { return Receiver::instance().scanner().stop(); });
}

void ATSC_host_set_air(const char* folder) {
  status_of(__func__, [&] {
    atschost::set_air_folder(folder ? folder : "");
    return true;
  });
}

void ATSC_host_set_dwell(unsigned int milliseconds) { atschost::set_dwell(milliseconds); }

void ATSC_host_set_fast(int fast) { atschost::set_fast(fast != 0); }
