// "FW" and "OS": playing and channel control.
#include <aicn.h>
#include <aife.h>
#include <aifw.h>
#include <aipt.h>
#include <aiup.h>
#include <atsc/atsc_service.h>
#include <osal.h>
#include <rmgr.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

constexpr unsigned int kPollMicroseconds = 100000;

// A change of the attribute flags, by type of the request.
struct FlagChange {
  const char* type;
  uint32_t flag;
  bool set;
  const char* text;
};

constexpr FlagChange kFlagChanges[] = {
    {"skip", AISRV_FLAG_SKIPPED, true, "Skip channel"},
    {"delete", AISRV_FLAG_DELETED, true, "Delete channel"},
    {"unskip", AISRV_FLAG_SKIPPED, false, "Unskip channel"},
    {"undelete", AISRV_FLAG_DELETED, false, "Undelete channel"},
    {"lock", AISRV_FLAG_LOCKED, true, "Lock channel"},
    {"unlock", AISRV_FLAG_LOCKED, false, "Unlock channel"},
};

// Returns the bit of a favourite group, counted from 1; 0 when the mask has no bit for the group.
uint32_t favouriteBit(uint32_t group) {
  constexpr uint32_t kFirst = 0x10;
  constexpr uint32_t kGroups = 28;
  return group <= kGroups ? kFirst << (group - 1) : 0;
}

// Returns whether a service is the current service.
bool isPlaying(const AISRV_service_id& id, const atsc::LogPlace& place) {
  atsc::LentService current;
  if (ATSC_CALL_AT(place, AICN_get_current, &current.record) != 0) return false;
  const AISRV_service_id& playing = current.record.service_id;
  return playing.service_rec == id.service_rec && playing.input_source == id.input_source;
}

}  // namespace

int ATSCServerService::FW_powerDown(bool powerdown) {
  ATSC_ENTER();
  const int status = ATSC_CALL(AIFW_powerTransition_request, powerdown ? 1 : 0);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_playSrc(std::string src) {
  ATSC_ENTER();
  ATSC_CALL(AIFE_tune_stop_request, AIFE_MAIN_TUNER, AIFE_MAIN_PATH);
  const uint32_t source = src == "QAM" ? AI_INPUT_CABLE : AI_INPUT_TERRESTRIAL;
  const int status = ATSC_CALL(AIFW_play_src, 0, source);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_playCurSrc() {
  ATSC_ENTER();
  const int status = ATSC_CALL(AIFW_play_curr_src);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_stopCurSrc() {
  ATSC_ENTER();
  ATSC_CALL(AIFE_tune_stop_request, AIFE_MAIN_TUNER, AIFE_MAIN_PATH);
  ATSC_CALL(AIFW_handle_tuner_mode_change, AICN_get_tuner_mode());
  const int status = ATSC_CALL(AIFW_stop_curr_src);
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_init() {
  ATSC_ENTER();
  const int status = ATSC_CALL(AIFW_init, 0);
  if (AIFW_register_frmwrk_app_cb(ATSC_Service_event_cb) != 0) {
    ATSC_LOG(Error, "AIFW_register_frmwrk_app_cb()\n");
  }
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_changeChannel(Json::Value request) try {
  ATSC_ENTER();
  // Reads all members before the first call that has an effect: a wrong member refuses the request.
  const std::string mode = request.get("mode", "").asString();
  const uint32_t source = atsc::sourceNamed(request.get("input", "VSB").asString());
  const bool password_reqd = request.get("password_reqd", true).asBool();
  AIFW_channel_change_request change{};
  change.mode = mode == "UP"     ? AIFW_CHANGE_UP
                : mode == "DOWN" ? AIFW_CHANGE_DOWN
                                 : AIFW_CHANGE_DIRECT;
  change.input_source = source;
  change.service_mask = AISRV_SERVICE_MASK;
  if (change.mode == AIFW_CHANGE_DIRECT) {
    const uint32_t major = request.get("major", 0).asUInt();
    const uint32_t minor = request.get("minor", 0).asUInt();
    // A number that does not fit the fields of the record must not become another channel.
    if (major > UINT16_MAX || minor > UINT16_MAX) {
      ATSC_LOG(Error, "no channel(%u-%u) to change to", major, minor);
      ATSC_LEAVE();
      return 0;
    }
    change.major = static_cast<uint16_t>(major);
    change.minor = static_cast<uint16_t>(minor);
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
  // Both messages show the result of this function, not of the call that failed.
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
} catch (const std::exception& e) {
  atsc::refused(*g_logger, ATSC_HERE(), e);
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::FW_modifyChannel(Json::Value request) {
  ATSC_ENTER();
  const uint32_t major = request.get("major", 0).asUInt();
  const uint32_t minor = request.get("minor", 0).asUInt();
  const uint32_t source = atsc::sourceNamed(request.get("src", "VSB").asString());
  const std::string type = request.get("type", "").asString();
  const bool favourite = type == "fav" || type == "unfav";
  const uint32_t group = favourite ? request.get("group", 0).asUInt() : 0;

  atsc::FetchedServices list;
  uint32_t count = 0;
  if (atsc::countServices(source, count, ATSC_HERE())) {
    atsc::fetchServices(source, count, list, ATSC_HERE());
  }
  const auto found = std::find_if(
      list.records.begin(), list.records.end(),
      [&](const AISRV_service_info& each) { return each.major == major && each.minor == minor; });
  if (found == list.records.end()) {
    ATSC_LOG(Error, "no channel(%u-%u) to modify", major, minor);
    ATSC_LEAVE();
    return -1;
  }
  AISRV_service_info& service = *found;
  printf("total_service_info[%d].service_id.service_rec %d(%d-%d)\n",
         static_cast<int>(found - list.records.begin()),
         static_cast<int>(service.service_id.service_rec), service.major, service.minor);
  ATSC_LOG(Info, "modify channel(%d-%d)", service.major, service.minor);

  for (const FlagChange& change : kFlagChanges) {
    if (type != change.type) continue;
    service.AISRV_flags_ =
        change.set ? service.AISRV_flags_ | change.flag : service.AISRV_flags_ & ~change.flag;
    ATSC_LOG(Info, "%s", change.text);
  }
  if (favourite) {
    if (group == 0) {
      ATSC_LOG(Error, "fav group setting is 0");
    } else if (type == "fav") {
      service.AISRV_fav_group_ |= favouriteBit(group);
      ATSC_LOG(Info, "set channel fav");
    } else {
      service.AISRV_fav_group_ &= ~favouriteBit(group);
      ATSC_LOG(Info, "unset channel fav");
    }
  }
  if ((type == "lock" || type == "unlock") && isPlaying(service.service_id, ATSC_HERE())) {
    ATSC_CALL(AICN_set_play_from_ap, 1);
  }

  const int status = ATSC_CALL(AIFW_modify_service, AIFW_SERVICE_MODIFY, &service);
  ATSC_Service_db_UpdateChannel(static_cast<int>(source));
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_addChannel(Json::Value request) {
  ATSC_ENTER();
  const uint32_t major = request.get("major", 0).asUInt();
  const uint32_t minor = request.get("minor", 0).asUInt();
  const uint32_t frequency = request.get("freq", 0).asUInt();
  const std::string name = request.get("name", "").asString();
  const uint32_t source = atsc::sourceNamed(request.get("src", "VSB").asString());
  // A number or name that does not fit the record must not become another channel or name.
  if (major > UINT16_MAX || minor > UINT16_MAX || name.size() > UINT16_MAX) {
    ATSC_LOG(Error, "channel(%u-%u) with a name of %zu bytes cannot be added", major, minor,
             name.size());
    ATSC_LEAVE();
    return -1;
  }

  atsc::LentService added(name.size() + 1);  // a single-byte text ends with a NUL
  AISRV_service_info& service = added.record;
  ATSC_LOG(Info, "add channel(%d-%d) frequency %d", static_cast<int>(major),
           static_cast<int>(minor), static_cast<int>(frequency));
  service.service_id.input_source = source;
  service.service_type = 1;
  service.major = static_cast<uint16_t>(major);
  service.minor = static_cast<uint16_t>(minor);
  service.frequency = frequency;
  service.modulation = source == AI_INPUT_TERRESTRIAL ? AI_MODULATION_8VSB : AI_MODULATION_QAM;
  service.AISRV_flags_ = 1;
  service.build_from_pmt = 1;
  memcpy(service.name.text, name.data(), name.size());
  service.name.length = static_cast<uint16_t>(name.size());
  service.name.encoding = 0;

  const int status = ATSC_CALL(AIFW_modify_service, AIFW_SERVICE_ADD, &service);
  ATSC_Service_db_UpdateChannel(static_cast<int>(source));
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
}

int ATSCServerService::FW_reloadDB() {
  ATSC_ENTER();
  ATSC_CALL(RMGRReload);
  ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL);
  ATSC_Service_db_UpdateChannel(AI_INPUT_CABLE);
  ATSC_LEAVE();
  return 0;
}

void ATSCServerService::OS_printSemList() {
  ATSC_ENTER();
  OSAL_display_sem_details_();
  ATSC_LEAVE();
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
    index = atsc::findChannelIndex(record, static_cast<uint16_t>(record.source_id));
  }
  ATSC_LEAVE();
  return index;
}
