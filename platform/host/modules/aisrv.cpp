#include "aisrv.h"

#include <algorithm>

#include "bus/server.h"
#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::isSource;
using atschost::loggedStatusOf;
using atschost::Service;
using atschost::statusOf;

namespace {

// Returns whether the filter has no condition. Conditions are not supported; ignoring one would
// return too many services.
bool isUnconditional(const AISRV_query_filter* filter) {
  return !filter || (filter->words[0] == 0 && filter->words[1] == 0);
}

}  // namespace

int AISRV_get_total_services(uint32_t inputSource, uint32_t mask, const AISRV_query_filter* filter,
                             uint32_t, uint32_t* count) {
  const auto read = [&] {
    bus::expectServiceProcess();  // first call of ATSC_Service_db_init()
    if (!count || !isSource(inputSource) || !isUnconditional(filter)) return false;
    *count = 0;
    hostReceiver().services().visit(inputSource, [&](const Service&) {
      ++*count;
      return true;
    });
    return true;
  };
  return loggedStatusOf(__func__, read, inputSource, mask, count);
}

int AISRV_get_n_services(uint32_t inputSource, uint32_t mask, uint32_t first,
                         const AISRV_query_filter* filter, uint32_t, uint32_t, uint32_t* count,
                         AISRV_service_info* records) {
  const auto read = [&] {
    if (!count || (!records && *count > 0)) return false;
    if (!isSource(inputSource) || !isUnconditional(filter)) return false;
    const uint32_t capacity = *count;
    uint32_t position = 0;
    *count = 0;
    hostReceiver().services().visit(inputSource, [&](const Service& service) {
      if (*count == capacity) return false;
      if (position++ >= first) atschost::copyRecord(service, records[(*count)++]);
      return true;
    });
    return true;
  };
  return loggedStatusOf(__func__, read, inputSource, mask, first, count);
}

int AISRV_get_pid_details(const AISRV_service_info* service, AISRV_pid_details* details) {
  return statusOf(__func__, [&] {
    if (!service || !details) return false;
    bool found = false;
    hostReceiver().services().visit(
        atschost::sourceOfId(service->service_id.input_source), [&](const Service& listed) {
          if (listed.record != service->service_id.service_rec) return true;
          found = true;
          *details = {};
          details->count = static_cast<uint32_t>(listed.streams.size());
          std::copy(listed.streams.begin(), listed.streams.end(), details->pids);
          return false;
        });
    return found;
  });
}

int AISRV_get_CAD_list(const AISRV_service_info* service, uint8_t* count, uint8_t* regions) {
  const auto read = [&] {
    if (!service || !count || (!regions && *count > 0)) return false;
    const auto now = hostReceiver().player().onNow(service->service_id);
    if (!now) return false;
    const unsigned capacity = std::min<unsigned>(*count, AISRV_MAX_ADVISORIES);
    *count = 0;
    if (!now->byStreams) return true;
    for (const atschost::Advisory& advisory : now->programme.advisories) {
      uint8_t* end = regions + *count;
      if (*count < capacity && std::find(regions, end, advisory.region) == end)
        regions[(*count)++] = advisory.region;
    }
    return true;
  };
  return loggedStatusOf(__func__, read, service ? service->service_id.service_rec : 0, count);
}

int AISRV_get_rating_status(const AISRV_service_info* service, uint32_t* status) {
  const auto read = [&] {
    const auto now =
        service && status ? hostReceiver().player().onNow(service->service_id) : std::nullopt;
    if (!now) return false;
    const bool counts = now->byStreams || !now->verdict.rated;
    *status = counts && now->verdict.blocked && !now->unlocked ? 1 : 0;
    return true;
  };
  return loggedStatusOf(__func__, read, service ? service->service_id.service_rec : 0, status);
}

int AISRV_sync_to_database() {
  return loggedStatusOf(__func__, [] { return hostReceiver().services().store(); });
}

int AISRV_reset_db(uint32_t inputSource) {
  return loggedStatusOf(
      __func__, [&] { return hostReceiver().serviceEditor().reset(inputSource); }, inputSource);
}
