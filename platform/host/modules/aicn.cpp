#include "aicn.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::AudioLanguages;
using atschost::hostReceiver;
using atschost::logCall;
using atschost::loggedStatusOf;
using atschost::runBody;

namespace {

// Runs `read` for a function that returns the value itself. Returns `otherwise` when reading fails.
template <typename Read>
int valueOf(const char* function, int otherwise, Read read) {
  int value = otherwise;
  const auto body = [&] {
    value = static_cast<int>(read(hostReceiver()));
    return true;
  };
  runBody(function, body);
  logCall(function, value);
  return value;
}

int setLanguage(const char* function, int32_t AudioLanguages::*which, int32_t language) {
  return loggedStatusOf(
      function, [&] { return hostReceiver().player().setAudioLanguage(which, language); },
      language);
}

int getLanguage(const char* function, int32_t AudioLanguages::*which, int32_t* language) {
  return loggedStatusOf(
      function,
      [&] {
        if (!language) return false;
        *language = hostReceiver().settings().languages().*which;
        return true;
      },
      language);
}

}  // namespace

int AICN_get_current(AISRV_service_info* record) {
  const auto body = [&] {
    if (!record) return false;
    const auto service = hostReceiver().player().current();
    if (service) atschost::copyRecord(*service, *record);
    return service.has_value();
  };
  const int status = runBody(__func__, body);
  if (status == 0)
    logCall(__func__, status, record->service_id.service_rec, record->major, record->minor);
  else
    logCall(__func__, status);
  return status;
}

int AICN_get_curr_input_source() {
  return valueOf(__func__, AI_INPUT_TERRESTRIAL,
                 [](atschost::Receiver& receiver) { return receiver.settings().source(); });
}

int AICN_get_chan_state() {
  return valueOf(__func__, 0,
                 [](atschost::Receiver& receiver) { return receiver.player().isPlaying(); });
}

// Has no effect: services only play on request.
int AICN_set_skip_play_srv(int skip) {
  return loggedStatusOf(
      __func__, [] { return true; }, skip);
}

int AICN_get_tuner_mode() {
  return valueOf(__func__, AI_INPUT_TERRESTRIAL,
                 [](atschost::Receiver& receiver) { return receiver.player().tunerSource(); });
}

int AICN_set_play_from_ap(int fromApplication) {
  return loggedStatusOf(
      __func__,
      [&] {
        hostReceiver().player().setPlayFromApplication(fromApplication != 0);
        return true;
      },
      fromApplication);
}

int AICN_set_pref_aud_lang(int32_t language) {
  return setLanguage(__func__, &AudioLanguages::first, language);
}

int AICN_get_pref_aud_lang(int32_t* language) {
  return getLanguage(__func__, &AudioLanguages::first, language);
}

int AICN_set_sec_pref_aud_lang(int32_t language) {
  return setLanguage(__func__, &AudioLanguages::second, language);
}

int AICN_get_sec_pref_aud_lang(int32_t* language) {
  return getLanguage(__func__, &AudioLanguages::second, language);
}
