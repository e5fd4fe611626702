// "SRV" and "TEST": the service list and the current service.
#include <aicn.h>
#include <aisrv.h>
#include <atsc/atsc_service.h>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// The reply when there is no current service or when the service is not in the channel table.
Json::Value noService() {
  Json::Value reply;
  for (const char* key : {"major", "minor", "freq", "fav_group", "srv_flag", "source_id"}) {
    reply[key] = 0;
  }
  reply["chn_name"] = "";
  reply["srv_rec"] = ATSC_CHANNEL_NOT_FOUND;
  return reply;
}

Json::Value describe(const AISRV_service_info& service) {
  Json::Value reply;
  reply["major"] = service.major;
  reply["minor"] = service.minor;
  reply["freq"] = service.frequency;
  reply["fav_group"] = static_cast<int32_t>(service.AISRV_fav_group_);
  reply["srv_flag"] = static_cast<int32_t>(service.AISRV_flags_);
  reply["source_id"] = static_cast<int32_t>(service.source_id);
  if (service.name.text != nullptr && service.name.length != 0) {
    reply["chn_name"] = atsc::nameInSlot(service);
  }
  return reply;
}

}  // namespace

int ATSCServerService::Srv_resetDB(std::string src) {
  ATSC_ENTER();
  const uint32_t source = atsc::sourceNamed(src);
  const int status = ATSC_CALL(AISRV_reset_db, source);
  ATSC_Service_db_UpdateChannel(static_cast<int>(source));
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::Srv_getCurrent(char** result) {
  ATSC_ENTER();
  atsc::LentService current;
  Json::Value reply;
  bool found = ATSC_CALL(AICN_get_current, &current.record) == 0;
  if (found) {
    reply = describe(current.record);
    const int index = atsc::findChannelIndex(current.record, current.record.source_id);
    found = index != ATSC_CHANNEL_NOT_FOUND;
    reply["srv_rec"] = static_cast<uint32_t>(index);
  }
  if (!found) {
    ATSC_LOG(Error, " AICN_get_current fail\n");
    reply = noService();
  }
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Info, "result: %s", text.c_str());
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::Test_getAllServiceAndUpdate(bool terrestrial) {
  ATSC_ENTER();
  ATSC_Service_db_UpdateChannel(terrestrial ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE);
  ATSC_LEAVE();
  return 0;
}

}  // namespace ATSCBUS
