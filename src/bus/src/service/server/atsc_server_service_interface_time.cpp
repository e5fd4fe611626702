// "TIME": the clock's mode, the time zone, the local time.
#include <aist.h>

#include <iterator>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// Names of the time zones; the position is the middleware's number, AIST_ZONE_*.
constexpr const char* kZones[] = {"SKST", "TST", "GMT", "NST",  "AST",  "EST",
                                  "CST",  "MST", "PST", "AKST", "HAST", "HST"};

const char* zoneName(int32_t zone) {
  const bool known = zone >= 0 && zone < static_cast<int32_t>(std::size(kZones));
  return known ? kZones[zone] : "EST";
}

}  // namespace

int ATSCServerService::Time_setSyncMode(Json::Value request) {
  ATSC_ENTER();
  const bool manual = atsc::textMember(request, "mode", "") != "AUTO";
  ATSC_CALL(AIST_manual_mode_enable, manual ? 1 : 0);
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::Time_setTimezone(Json::Value request) {
  ATSC_ENTER();
  const std::string name = atsc::textMember(request, "zone", "");
  for (size_t zone = 0; zone < std::size(kZones); ++zone) {
    if (name != kZones[zone]) continue;
    ATSC_CALL(AIST_set_current_time_zone, static_cast<int32_t>(zone));
    break;
  }
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::Time_getCurrentSetting(char** result) {
  ATSC_ENTER();
  AIST_system_time_info info{};
  ATSC_CALL(AIST_get_system_time_info, &info);
  Json::Value reply;
  reply["time_zone"] = zoneName(info.zone);
  reply["offset"] = info.offset;
  reply["mode"] = info.mode == AIST_MODE_AUTOMATIC ? "AUTO" : "MANUAL";
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Info, "result: %s", text.c_str());
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::Time_getCurrentTime(char** result) {
  ATSC_ENTER();
  AIST_time_date date{};
  ATSC_CALL(AIST_get_cur_time_date, &date);
  Json::Value reply;
  reply["year"] = date.year;
  reply["month"] = date.month;
  reply["mday"] = date.mday;
  reply["hour"] = date.hour;
  reply["min"] = date.minute;
  reply["sec"] = date.second;
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Info, "result: %s", text.c_str());
  ATSC_LEAVE();
  return 0;
}

}  // namespace ATSCBUS
