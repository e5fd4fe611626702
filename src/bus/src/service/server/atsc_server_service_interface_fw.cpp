// "FW": playing and channel control.
#include <aicn.h>
#include <aifw.h>
#include <aipt.h>
#include <aiup.h>
#include <atsc/atsc_service.h>

#include <array>
#include <cstdio>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "service/server/atsc_server_service.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

constexpr unsigned int kPollMicroseconds = 100000;

}  // namespace

int ATSCServerService::FW_init() {
  ATSC_ENTER();
  const int status = ATSC_CALL(AIFW_init, 0);
  if (AIFW_register_frmwrk_app_cb(ATSC_Service_event_cb) != 0) {
    ATSC_LOG(Error, "AIFW_register_frmwrk_app_cb()\n");
  }
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_changeChannel(Json::Value request) {
  ATSC_ENTER();
  // Everything that can be refused is read before the first call that has an effect.
  const std::string mode = request.get("mode", "").asString();
  const uint32_t source =
      request.get("input", "VSB").asString() == "VSB" ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE;
  const bool password_reqd = request.get("password_reqd", true).asBool();
  AIFW_channel_change_request change{};
  change.mode = mode == "UP"     ? AIFW_CHANGE_UP
                : mode == "DOWN" ? AIFW_CHANGE_DOWN
                                 : AIFW_CHANGE_DIRECT;
  change.input_source = source;
  change.service_mask = AISRV_SERVICE_MASK;
  if (change.mode == AIFW_CHANGE_DIRECT) {
    change.major = static_cast<uint16_t>(request.get("major", 0).asUInt());
    change.minor = static_cast<uint16_t>(request.get("minor", 0).asUInt());
  }
  change.service_rec = request.get("service_record", 0xFFFF).asUInt();
  change.input_source_again = source;

  ATSC_LOG(Debug, "current channel play state %x\n", static_cast<unsigned>(AICN_get_chan_state()));
  ATSC_CALL(AICN_set_skip_play_srv, 0);
  ATSC_LOG(Debug, "set password_reqd to %s", password_reqd ? "true" : "false");
  ATSC_CALL(AIFW_passwd_reqd_non_play_src, password_reqd ? 1 : 0);
  if (ATSC_CALL(AIFW_stop_curr_src) == 0) {
    int status = 0;
    ATSC_CALL(AIPT_get_index_status, &status, 0);
    while (status != 0 && status != 1) {
      if (waitForStop(kPollMicroseconds)) {
        ATSC_LEAVE();
        return 0;
      }
      ATSC_CALL(AIPT_get_index_status, &status, 0);
    }
  }
  ATSC_CALL(AIFW_channel_change, &change);
  ATSC_CALL(AIFW_pwd_unlocked_no_playing, password_reqd ? 0 : 1);
  ATSC_CALL(AIFW_passwd_reqd_non_play_src, 1);
  // The code in both messages is this function's result, not the failing call's.
  const int result = 0;
  if (AIUP_store_all() != 0) {
    ATSC_LOG(Error, "Failed to call AIUP_store_all() -> 0x%08x: %s", result, __PRETTY_FUNCTION__);
  }
  if (AIUP_sync() != 0) {
    ATSC_LOG(Error, "Failed to call AIUP_sync() -> 0x%08x: %s", result, __PRETTY_FUNCTION__);
  }
  saved_channel_index_ = GetCurrentChannelIdx();
  ATSC_LEAVE();
  return result;
}

}  // namespace ATSCBUS

int GetCurrentChannelIdx() {
  ATSC_ENTER();
  int index = ATSCBUS::ATSCServerService::INVALID_CHANNEL_INDEX;
  std::array<uint8_t, 16> name{};
  AISRV_service_info record{};
  record.name.text = name.data();
  record.name.length = name.size();
  if (ATSC_CALL(AICN_get_current, &record) == 0) {
    ATSC_Service_db_channelKey key{};
    key.major = record.major;
    key.minor = record.minor;
    key.source_id = static_cast<uint16_t>(record.source_id);
    key.frequency = record.frequency;
    snprintf(key.table, sizeof key.table, "%s", atsc::channelTable(AICN_get_curr_input_source()));
    index = ATSC_Service_db_findChannelIndex(atsc::channelDatabasePath().c_str(), key, nullptr,
                                             nullptr);
  }
  ATSC_LEAVE();
  return index;
}
