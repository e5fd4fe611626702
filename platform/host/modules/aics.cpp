#include "aics.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::loggedStatusOf;
using atschost::memberOf;

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  return loggedStatusOf(
      __func__, [&] { return request && hostReceiver().scanner().start(*request, callback); },
      memberOf(request, &AICS_search_request::search_type),
      memberOf(request, &AICS_search_request::frequency),
      memberOf(request, &AICS_search_request::source));
}

int AICS_stop_scan() {
  return loggedStatusOf(__func__, [] { return hostReceiver().scanner().stop(); });
}
