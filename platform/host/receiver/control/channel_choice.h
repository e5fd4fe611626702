// Choice of the service for a channel change.
#ifndef ATSC_HOST_RECEIVER_CONTROL_CHANNEL_CHOICE_H_
#define ATSC_HOST_RECEIVER_CONTROL_CHANNEL_CHOICE_H_

#include <optional>
#include <vector>

#include "aifw.h"
#include "receiver/station/service_list.h"

namespace atschost {

bool isDeleted(const Service& service);

// Returns the services of a source that are not deleted. Selects one frequency unless `frequency`
// is 0.
std::vector<Service> listedServices(const ServiceList& list, uint32_t source, uint32_t frequency);

// Returns the candidates of a channel change, in the order in which to try them. `last` is the
// service that played last on the source. Returns nullopt for an unknown mode.
std::optional<std::vector<Service>> chooseServices(const ServiceList& list,
                                                   const AIFW_channel_change_request& request,
                                                   const std::optional<ServiceKey>& last);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_CHANNEL_CHOICE_H_
