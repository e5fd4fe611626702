#include "aicn.h"

#include "receiver/receiver.h"

using atschost::AudioLanguages;
using atschost::log_call;
using atschost::logged_status_of;
using atschost::Receiver;
using atschost::run_body;

namespace {

// Functions that return what they read are given something to return when reading fails.
template <typename Read>
int value_of(const char* function, int otherwise, Read read) {
  int value = otherwise;
  const auto body = [&] {
    value = static_cast<int>(read(Receiver::instance()));
    return true;
  };
  run_body(function, body);
  log_call(function, value);
  return value;
}

int set_language(const char* function, int32_t AudioLanguages::*which, int32_t language) {
  return logged_status_of(
      function, [&] { return Receiver::instance().set_audio_language(which, language); }, language);
}

int get_language(const char* function, int32_t AudioLanguages::*which, int32_t* language) {
  return logged_status_of(
      function,
      [&] {
        if (!language) return false;
        *language = Receiver::instance().audio_languages().*which;
        return true;
      },
      language);
}

}  // namespace

int AICN_get_current(AISRV_service_info* record) {
  const auto body = [&] {
    if (!record) return false;
    const auto service = Receiver::instance().current();
    if (service) atschost::copy_record(*service, *record);
    return service.has_value();
  };
  const int status = run_body(__func__, body);
  if (status == 0)
    log_call(__func__, status, record->service_id.service_rec, record->major, record->minor);
  else
    log_call(__func__, status);
  return status;
}

int AICN_get_curr_input_source() {
  return value_of(__func__, AI_INPUT_TERRESTRIAL,
                  [](const Receiver& receiver) { return receiver.current_source(); });
}

int AICN_get_chan_state() {
  return value_of(__func__, 0, [](const Receiver& receiver) { return receiver.is_playing(); });
}

int AICN_set_skip_play_srv(int skip) {
  return logged_status_of(
      __func__,
      [&] {
        Receiver::instance().set_skip_play(skip != 0);
        return true;
      },
      skip);
}

int AICN_get_tuner_mode() {
  return value_of(__func__, AI_INPUT_TERRESTRIAL,
                  [](const Receiver& receiver) { return receiver.tuner_source(); });
}

int AICN_set_play_from_ap(int from_application) {
  return logged_status_of(
      __func__,
      [&] {
        Receiver::instance().set_play_from_application(from_application != 0);
        return true;
      },
      from_application);
}

int AICN_set_pref_aud_lang(int32_t language) {
  return set_language(__func__, &AudioLanguages::first, language);
}

int AICN_get_pref_aud_lang(int32_t* language) {
  return get_language(__func__, &AudioLanguages::first, language);
}

int AICN_set_sec_pref_aud_lang(int32_t language) {
  return set_language(__func__, &AudioLanguages::second, language);
}

int AICN_get_sec_pref_aud_lang(int32_t* language) {
  return get_language(__func__, &AudioLanguages::second, language);
}
