#include <cstdlib>
#include <exception>
#include <iterator>
#include <stdexcept>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("service/srv")

namespace ATSCBUS {

// The commands of all classes, in the order of comparison.
struct ATSCServerService::Dispatcher {
  struct Call {
    ATSCServerService& server;
    Json::Value& request;
    const std::string& text;  // the received request
    char** result;
  };

  struct Command {
    const char* name;
    int (*handler)(const Call& call);
  };

  struct Class {
    const char* name;
    const Command* commands;
    size_t count;
  };

  // Calls a handler that takes the request and the reply pointer.
  template <int (ATSCServerService::*handler)(Json::Value& request, char** result)>
  static int run(const Call& call) {
    return (call.server.*handler)(call.request, call.result);
  }

  // Returns null when there is no such command.
  static const Class* findClass(const std::string& name);
  static const Command* findCommand(const Class& commandClass, const std::string& name);

  // The tables have no destructor: a command may run while the process ends.
  static const Command kFW[];
  static const Command kScan[];
  static const Command kSrv[];
  static const Command kTime[];
  static const Command kAud[];
  static const Command kVC[];
  static const Command kCN[];
  static const Command kTest[];
  static const Command kCC[];
  static const Command kPC[];
  static const Command kEAS[];
  static const Command kMisc[];
  static const Command kOS[];
  static const Class kClasses[];
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kFW[] = {
    {"POWERDOWN",
     [](const Call& call) {
       return call.server.FW_powerDown(call.request.get("powerdown", false).asBool());
     }},
    {"PLAYSRC",
     [](const Call& call) {
       return call.server.FW_playSrc(call.request.get("src", "").asString());
     }},
    {"CHANNELCHANGE",
     [](const Call& call) {
       call.server.queueCommand(call.text);
       return 0;
     }},
    {"CHANNELMODIFY", [](const Call& call) { return call.server.FW_modifyChannel(call.request); }},
    {"CHANNELADD", [](const Call& call) { return call.server.FW_addChannel(call.request); }},
    {"RELOADDB", [](const Call& call) { return call.server.FW_reloadDB(); }},
    {"PLAY", [](const Call& call) { return call.server.FW_playCurSrc(); }},
    {"STOP", [](const Call& call) { return call.server.FW_stopCurSrc(); }},
    {"INIT", [](const Call& call) { return call.server.FW_init(); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kScan[] = {
    {"start", [](const Call& call) { return call.server.Scan_start(call.request); }},
    {"stop", [](const Call& call) { return call.server.Scan_stop(); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kSrv[] = {
    {"RESET",
     [](const Call& call) {
       return call.server.Srv_resetDB(call.request.get("src", "").asString());
     }},
    {"GETCUR", [](const Call& call) { return call.server.Srv_getCurrent(call.result); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kTime[] = {
    {"SETMODE", [](const Call& call) { return call.server.Time_setSyncMode(call.request); }},
    {"SETTIMEZONE", [](const Call& call) { return call.server.Time_setTimezone(call.request); }},
    {"GETSETTING",
     [](const Call& call) { return call.server.Time_getCurrentSetting(call.result); }},
    {"GETCUR", [](const Call& call) { return call.server.Time_getCurrentTime(call.result); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kAud[] = {
    {"CHANGE",
     [](const Call& call) {
       return call.server.AUD_changeAudio(call.request.get("index", 0).asUInt());
     }},
    {"SETDUAL", [](const Call& call) { return call.server.AUD_setDualMode(call.request); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kVC[] = {
    {"CLOSE", [](const Call& call) { return call.server.VC_close(); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kCN[] = {
    {"SETPREAUD", [](const Call& call) { return call.server.CN_setPreAudLang(call.request); }},
    {"GETPREAUD", [](const Call& call) { return call.server.CN_getPreAudLang(call.result); }},
    {"GETCURSRC", [](const Call& call) { return call.server.CN_getCurSource(call.result); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kTest[] = {
    {"GETSERVICE",
     [](const Call& call) {
       const std::string input = atsc::textMember(call.request, "input", "VSB");
       return call.server.Test_getAllServiceAndUpdate(input == "VSB");
     }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kCC[] = {
    {"get_sar", [](const Call& call) { return call.server.CC_GetSAR(call.request, call.result); }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kPC[] = {
    {"NUMDIM", run<&ATSCServerService::PC_NumOfDimension>},
    {"DIMNAME", run<&ATSCServerService::PC_DimensionName>},
    {"RETREIVERATING", run<&ATSCServerService::PC_RetreiveRating>},
    {"STORERATING", run<&ATSCServerService::PC_StoreRating>},
    {"ENCODE", run<&ATSCServerService::PC_RatingEncode>},
    {"GETPRTDETAIL", run<&ATSCServerService::PC_GetParentalDetails>},
    {"SETPRTDETAIL", run<&ATSCServerService::PC_SetParentalDetails>},
    {"GETREGION", run<&ATSCServerService::PC_GetRRTRegions>},
    {"RESET", run<&ATSCServerService::PC_ResetUserRatings>},
    {"STOREALL", run<&ATSCServerService::PC_StoreAll>},
    {"GETRRTDETAIL", run<&ATSCServerService::PC_GetRRTDetails>},
    {"GETVALTXT", run<&ATSCServerService::PC_GetRatingValueText>},
    {"SETUNRATEDGRP", run<&ATSCServerService::PC_SetRatingStatusUnratedGroups>},
    {"GETUNRATEDGRP", run<&ATSCServerService::PC_GetRatingStatusUnratedGroups>},
    {"ENCODEDRRT", run<&ATSCServerService::PC_DRRTRatingEncode>},
    {"DEFAULTSETTING", run<&ATSCServerService::PC_SetDefaultSetting>},
    {"SETCURRREG", run<&ATSCServerService::PC_SetCurrentRegion>},
    {"GETCURRREG", run<&ATSCServerService::PC_GetCurrentRegion>},
    {"ISPCBLOCKED", run<&ATSCServerService::PC_IsParentalBlocked>},
    {"PWDUNLOCK", run<&ATSCServerService::PC_PwdUnlock>},
    {"CHECKRAT", run<&ATSCServerService::PC_CheckRating>},
    {"EASUSERSETTING", run<&ATSCServerService::EAS_EASUserSetting>},
    {"DISABLEOPTEASCHK", run<&ATSCServerService::EAS_DisableOptionalEASEventIdCheck>},
    {"CABLEEASONLY", run<&ATSCServerService::EAS_EnableCableEASOnly>},
    {"COLLECTRRT", run<&ATSCServerService::PC_StartCollectRRT>},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kEAS[] = {
    {"EASUSERSETTING", run<&ATSCServerService::EAS_EASUserSetting>},
    {"DISABLEOPTEASCHK", run<&ATSCServerService::EAS_DisableOptionalEASEventIdCheck>},
    {"CABLEEASONLY", run<&ATSCServerService::EAS_EnableCableEASOnly>},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kMisc[] = {
    {"LOGCTL",
     [](const Call& call) {
       const std::string para = atsc::textMember(call.request, "para", "");
       if (para == "RESUME") call.server.reduced_logging_ = 0;
       if (para == "REDUCE") call.server.reduced_logging_ = 1;
       return 0;
     }},
};

constexpr ATSCServerService::Dispatcher::Command ATSCServerService::Dispatcher::kOS[] = {
    {"SEMLIST",
     [](const Call& call) {
       call.server.OS_printSemList();
       return 0;
     }},
};

constexpr ATSCServerService::Dispatcher::Class ATSCServerService::Dispatcher::kClasses[] = {
    {"FW", kFW, std::size(kFW)},    {"SCAN", kScan, std::size(kScan)},
    {"SRV", kSrv, std::size(kSrv)}, {"TIME", kTime, std::size(kTime)},
    {"AUD", kAud, std::size(kAud)}, {"VC", kVC, std::size(kVC)},
    {"CN", kCN, std::size(kCN)},    {"TEST", kTest, std::size(kTest)},
    {"CC", kCC, std::size(kCC)},    {"PC", kPC, std::size(kPC)},
    {"EAS", kEAS, std::size(kEAS)}, {"MSC", kMisc, std::size(kMisc)},
    {"OS", kOS, std::size(kOS)},
};

namespace {

// Returns a member as text, "" when it is absent. Unlike Json::Value::get(), copies no values.
template <size_t N>
std::string textMember(const Json::Value& request, const char (&key)[N]) {
  const Json::Value* member = request.find(key, key + N - 1);
  return member != nullptr ? member->asString() : std::string();
}

}  // namespace

const ATSCServerService::Dispatcher::Class* ATSCServerService::Dispatcher::findClass(
    const std::string& name) {
  for (const Class& commandClass : kClasses) {
    if (name == commandClass.name) return &commandClass;
  }
  return nullptr;
}

const ATSCServerService::Dispatcher::Command* ATSCServerService::Dispatcher::findCommand(
    const Class& commandClass, const std::string& name) {
  for (size_t i = 0; i < commandClass.count; ++i) {
    if (name == commandClass.commands[i].name) return &commandClass.commands[i];
  }
  return nullptr;
}

std::vector<std::string> ATSCServerService::commandNames() {
  std::vector<std::string> names;
  for (const Dispatcher::Class& commandClass : Dispatcher::kClasses) {
    for (size_t i = 0; i < commandClass.count; ++i) {
      names.push_back(std::string(commandClass.name) + ' ' + commandClass.commands[i].name);
    }
  }
  return names;
}

int ATSCServerService::jsonCommand(const char* command, char** result) {
  ATSC_ENTER();
  const char* shown = command != nullptr ? command : "";
  if (*shown == '\0') {
    ATSC_LEAVE();
    return 0;
  }
  int code = -1;
  char* unwanted = nullptr;
  if (result == nullptr) result = &unwanted;
  // The JSON library throws on values of the wrong type and on too deep a nesting.
  try {
    const std::string text = shown;
    Json::Reader reader;
    Json::Value request;
    // Without comments: they are not used, and keeping them takes quadratic time.
    if (!reader.parse(text, request, false)) return -1;
    if (!request.isObject() && !request.isNull())
      throw std::invalid_argument("it is not a JSON object");
    const std::string className = textMember(request, "class");
    const std::string commandName = textMember(request, "command");
    if (reduced_logging_ == 1 && className == "PC" && commandName == "ENCODE") {
      shown = "ENCODE";
    } else {
      ATSC_LOG(Info, "commad:\n%s", text.c_str());
    }
    const Dispatcher::Class* commands = Dispatcher::findClass(className);
    const Dispatcher::Command* found =
        commands != nullptr ? Dispatcher::findCommand(*commands, commandName) : nullptr;
    if (commands == nullptr) {
      ATSC_LOG(Error, "Class(%s) is not supported", className.c_str());
    } else if (found == nullptr) {
      ATSC_LOG(Error, "command(%s) is not support", commandName.c_str());
    } else {
      code = found->handler({*this, request, text, result});
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "command refused: %s: %.200s", e.what(), shown);
    code = -1;
  }
  free(unwanted);
  ATSC_LEAVE();
  return code;
}

}  // namespace ATSCBUS
