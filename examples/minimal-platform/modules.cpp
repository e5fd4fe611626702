// The small modules AIAUD, AICC, AIIN and AIUP, and the audio languages of AICN.
#include "aiaud.h"
#include "aicc.h"
#include "aicn.h"
#include "aife.h"
#include "aiin.h"
#include "aiup.h"
#include "set.h"

using namespace minimal;

namespace {

int setLanguage(const char* key, int32_t language) {
  if (language < AICN_LANGUAGE_ENGLISH || language > AICN_LANGUAGE_SPANISH) return kFailure;
  changeSettings({{key, language}});
  return kSuccess;
}

int getLanguage(const char* key, int32_t* language) {
  if (language == nullptr) return kFailure;
  *language = setting(key, AICN_LANGUAGE_ENGLISH);
  return kSuccess;
}

}  // namespace

int AIAUD_set_dual_mode(uint32_t mode) {
  if (mode > AIAUD_DUAL_MIXED) return kFailure;
  return changeSettings({{"dual_mode", mode}}) ? kSuccess : kFailure;
}

// Reports no captions.
int AICC_get_cc_service_data(uint32_t /*path*/, const AISRV_service_info* service,
                             AICC_cc_service_data* data) {
  if (data == nullptr || listedService(service) == nullptr) return kFailure;
  data->count = 0;
  return kSuccess;
}

int AIIN_get_input_details(uint32_t inputSource, uint8_t* /*flag*/, AIIN_input_t* details,
                           uint32_t /*reserved*/) {
  if (inputSource < AI_INPUT_TERRESTRIAL) return kFailure;
  return AIIN_get_db_no_input_details(inputSource, details);
}

int AIIN_get_db_no_input_details(uint32_t inputSource, AIIN_input_t* details) {
  if (inputSource > AI_INPUT_CABLE || details == nullptr) return kFailure;
  *details = {};
  details->type = inputSource | AI_INPUT_TERRESTRIAL;
  details->tuner = AIFE_MAIN_TUNER;
  details->handle = details->type;
  return kSuccess;
}

// Settings are stored with each change.
int AIUP_store_all(void) { return kSuccess; }
int AIUP_sync(void) { return kSuccess; }

int AICN_set_pref_aud_lang(int32_t language) { return setLanguage("language", language); }
int AICN_get_pref_aud_lang(int32_t* language) { return getLanguage("language", language); }
int AICN_set_sec_pref_aud_lang(int32_t language) { return setLanguage("language_2", language); }
int AICN_get_sec_pref_aud_lang(int32_t* language) { return getLanguage("language_2", language); }
