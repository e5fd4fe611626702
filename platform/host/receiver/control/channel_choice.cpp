#include "receiver/control/channel_choice.h"

#include <algorithm>

namespace atschost {
namespace {

bool isSurfable(const Service& service) {
  const uint32_t mask = AISRV_FLAG_VISIBLE | AISRV_FLAG_DELETED | AISRV_FLAG_SKIPPED;
  return (service.flags & mask) == AISRV_FLAG_VISIBLE;
}

template <typename Wanted>
std::vector<Service> select(const ServiceList& list, uint32_t source, Wanted wanted) {
  std::vector<Service> services;
  list.visit(source, [&](const Service& service) {
    if (wanted(service)) services.push_back(service);
    return true;
  });
  return services;
}

// Returns the services with the requested number, first the service with the requested record
// number. Several frequencies can carry the same number.
std::vector<Service> numbered(const ServiceList& list, const AIFW_channel_change_request& request) {
  auto services = select(list, request.input_source, [&](const Service& s) {
    return !isDeleted(s) && s.key.major == request.major && s.key.minor == request.minor;
  });
  std::stable_partition(services.begin(), services.end(),
                        [&](const Service& s) { return s.record == request.service_rec; });
  return services;
}

// Returns the services after `last` if `up`, else the services before it, and wraps around at the
// end of the list.
std::vector<Service> neighbours(const ServiceList& list, uint32_t source, bool up,
                                const std::optional<ServiceKey>& last) {
  auto services = select(list, source, isSurfable);
  if (!up) std::reverse(services.begin(), services.end());
  if (!last) return services;
  const auto next = std::find_if(services.begin(), services.end(), [&](const Service& s) {
    return up ? *last < s.key : s.key < *last;
  });
  std::rotate(services.begin(), next, services.end());
  return services;
}

}  // namespace

bool isDeleted(const Service& service) { return service.flags & AISRV_FLAG_DELETED; }

std::vector<Service> listedServices(const ServiceList& list, uint32_t source, uint32_t frequency) {
  return select(list, source, [&](const Service& s) {
    return !isDeleted(s) && (frequency == 0 || s.key.frequency == frequency);
  });
}

std::optional<std::vector<Service>> chooseServices(const ServiceList& list,
                                                   const AIFW_channel_change_request& request,
                                                   const std::optional<ServiceKey>& last) {
  switch (request.mode) {
    case AIFW_CHANGE_DIRECT:
      return numbered(list, request);
    case AIFW_CHANGE_UP:
    case AIFW_CHANGE_DOWN:
      return neighbours(list, request.input_source, request.mode == AIFW_CHANGE_UP, last);
    default:
      return std::nullopt;
  }
}

}  // namespace atschost
