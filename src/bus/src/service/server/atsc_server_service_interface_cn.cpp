// "CN": the input source and the preferred audio languages.
#include <aicn.h>
#include <aiup.h>

#include <iterator>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// Codes of the audio languages; the position is the middleware's number, AICN_LANGUAGE_*.
constexpr const char* kLanguages[] = {"eng", "fre", "spa"};

// Returns `unknown` for a code that is not in the list.
int32_t languageNumber(const std::string& code, int32_t unknown) {
  for (size_t i = 0; i < std::size(kLanguages); ++i) {
    if (code == kLanguages[i]) return static_cast<int32_t>(i);
  }
  return unknown;
}

// Does not change `code` for an unknown number.
void setLanguageCode(int32_t number, std::string& code) {
  if (number >= 0 && number < static_cast<int32_t>(std::size(kLanguages))) {
    code = kLanguages[number];
  }
}

}  // namespace

int ATSCServerService::CN_setPreAudLang(Json::Value request) try {
  ATSC_ENTER();
  const int32_t first = languageNumber(request.get("first", "").asString(), AICN_LANGUAGE_ENGLISH);
  const int32_t second = languageNumber(request.get("second", "").asString(), first);
  ATSC_CALL(AICN_set_pref_aud_lang, first);
  // The result of the first call is only logged.
  int status = ATSC_CALL(AICN_set_sec_pref_aud_lang, second);
  if (status == 0 && AIUP_store_all() != 0) {
    status = -1;
    ATSC_LOG(Error, "Failed to call AIUP_store_all() -> 0x%08x: %s", status, __PRETTY_FUNCTION__);
  }
  if (status == 0 && AIUP_sync() != 0) {
    status = -1;
    ATSC_LOG(Error, "Failed to call AIUP_sync() -> 0x%08x: %s", status, __PRETTY_FUNCTION__);
  }
  ATSC_LEAVE();
  return status == 0 ? 0 : -1;
} catch (const std::exception& e) {
  const int result = atsc::refused(*g_logger, ATSC_HERE(), e);
  ATSC_LEAVE();
  return result;
}

int ATSCServerService::CN_getPreAudLang(char** result) {
  ATSC_ENTER();
  Json::Value reply;
  int32_t number = -1;
  // For an unknown second language the reply repeats the first language.
  std::string code;
  ATSC_CALL(AICN_get_pref_aud_lang, &number);
  setLanguageCode(number, code);
  reply["first"] = code;
  number = -1;
  ATSC_CALL(AICN_get_sec_pref_aud_lang, &number);
  setLanguageCode(number, code);
  reply["second"] = code;
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Info, "result: %s", text.c_str());
  ATSC_LEAVE();
  return 0;
}

int ATSCServerService::CN_getCurSource(char** result) {
  ATSC_ENTER();
  Json::Value reply;
  const int source = AICN_get_curr_input_source();
  if (source == AI_INPUT_TERRESTRIAL) {
    ATSC_LOG(Debug, "ATSC_INPUT");
    reply["src"] = "VSB";
  } else if (source == AI_INPUT_CABLE) {
    ATSC_LOG(Debug, "CABLE_INPUT");
    reply["src"] = "QAM";
  } else {
    ATSC_LOG(Debug, "current input(%d)", source);
    reply["src"] = "ERROR";
  }
  const std::string text = atsc::giveReply(reply, result);
  ATSC_LOG(Info, "result: %s", text.c_str());
  ATSC_LEAVE();
  return 0;
}

}  // namespace ATSCBUS
