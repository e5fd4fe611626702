// "EAS": settings of the emergency alerts.
#include <aifw.h>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// One setting of the middleware.
struct AlertSetting {
  const char* function;
  int (*exchange)(int32_t* value, int direction);
  const char* key;  // of request and reply
  const char* missing;
  bool isBoolean;  // else an integer
};

constexpr AlertSetting kUserSetting = {"AIFW_user_eas_setting", AIFW_user_eas_setting, "setting",
                                       "Can not find setting", false};
constexpr AlertSetting kOptionalEventIdCheck = {"AIFW_disable_optional_eas_event_id_check",
                                                AIFW_disable_optional_eas_event_id_check, "status",
                                                "Can not find status", true};
constexpr AlertSetting kCableOnly = {"AIFW_enable_eas_cable_only", AIFW_enable_eas_cable_only,
                                     "status", "Can not find status", true};

// Reads or changes a setting.
int exchangeSetting(const atsc::Handler& handler, const AlertSetting& setting,
                    const Json::Value& request, char** result) {
  if (!request.isMember("op")) return handler.refuse("Can not find operation");
  int32_t value = 0;
  if (atsc::textMember(request, "op", "get") == "set") {
    if (!request.isMember(setting.key)) return handler.refuse(setting.missing);
    const Json::Value& given = request[setting.key];
    value = setting.isBoolean ? (given.asBool() ? 1 : 0) : given.asInt();
    const int status = setting.exchange(&value, AIFW_EAS_WRITE);
    if (status == 0) return handler.leave();
    handler.check(setting.function, status);
    return -1;
  }
  const int status = setting.exchange(&value, AIFW_EAS_READ);
  handler.check(setting.function, status);
  if (status != 0 && setting.isBoolean) value = 0;
  Json::Value reply;
  reply[setting.key] = setting.isBoolean ? Json::Value(value == 1) : Json::Value(value);
  handler.answer(reply, result);
  return handler.leave();
}

}  // namespace

int ATSCServerService::EAS_EASUserSetting(Json::Value& request, char** result) {
  return exchangeSetting({*g_logger, ATSC_HERE()}, kUserSetting, request, result);
}

int ATSCServerService::EAS_DisableOptionalEASEventIdCheck(Json::Value& request, char** result) {
  return exchangeSetting({*g_logger, ATSC_HERE()}, kOptionalEventIdCheck, request, result);
}

int ATSCServerService::EAS_EnableCableEASOnly(Json::Value& request, char** result) {
  return exchangeSetting({*g_logger, ATSC_HERE()}, kCableOnly, request, result);
}

}  // namespace ATSCBUS
