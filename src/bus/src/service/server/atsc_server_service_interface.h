// What the command handlers share.
#ifndef ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_
#define ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_

#include <aisrv.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "atsc_text.h"

namespace atsc {

// The input source of a request's text: "VSB" is terrestrial, anything else cable.
uint32_t sourceNamed(const std::string& name);

// A service record with a name buffer of `slot` bytes for the middleware to fill.
struct LentService {
  explicit LentService(size_t slot = kNameSlot);
  LentService(const LentService&) = delete;
  LentService& operator=(const LentService&) = delete;

  AISRV_service_info record{};
  std::vector<uint8_t> name;
};

// Hands a reply over to the receiver of the command: as a calloc'ed text in `*result`, which stays
// null for want of memory. Returns the text.
std::string giveReply(const Json::Value& reply, char** result);

// The channel-table index of a service of the current input source, ATSC_CHANNEL_NOT_FOUND when
// there is no such row.
int findChannelIndex(const AISRV_service_info& service, uint32_t source_id);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_
