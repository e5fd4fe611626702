#include "aifw.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::isSource;
using atschost::loggedStatusOf;
using atschost::memberOf;

namespace {

// Reads or sets one of the alert settings, with values from 0 to `max`.
int alertSetting(const char* function, int32_t atschost::AlertSettings::Values::*which, int32_t max,
                 int32_t* value, int direction) {
  return loggedStatusOf(
      function,
      [&] {
        if (!value) return false;
        if (direction == AIFW_EAS_READ) {
          *value = hostReceiver().settings().alert(which);
          return true;
        }
        return direction == AIFW_EAS_WRITE && *value >= 0 && *value <= max &&
               hostReceiver().settings().setAlert(which, *value);
      },
      value, direction);
}

}  // namespace

int AIFW_init(int mode) {
  return loggedStatusOf(
      __func__,
      [] {
        hostReceiver().start();
        return true;
      },
      mode);
}

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  return loggedStatusOf(
      __func__,
      [&] {
        hostReceiver().setCallback(callback);
        return true;
      },
      callback != nullptr);
}

int AIFW_get_event_update_data(AIFW_event_update_data* data) {
  return loggedStatusOf(__func__, [&] {
    if (!data) return false;
    *data = hostReceiver().events().updateData();
    return true;
  });
}

int AIFW_get_EAS_priority(uint8_t* priority) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!priority) return false;
        *priority = hostReceiver().events().alertPriority();
        return true;
      },
      priority);
}

int AIFW_powerTransition_request(int powerdown) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (powerdown != 0) return hostReceiver().enterStandby();
        hostReceiver().player().leaveStandby();
        return true;
      },
      powerdown);
}

int AIFW_play_src(uint32_t path, uint32_t inputSource) {
  return loggedStatusOf(
      __func__,
      [&] {
        return path == 0 && isSource(inputSource) &&
               hostReceiver().player().playSource(inputSource);
      },
      path, inputSource);
}

int AIFW_play_curr_src() {
  return loggedStatusOf(__func__, [] {
    return hostReceiver().player().playSource(hostReceiver().settings().source());
  });
}

int AIFW_play_first_service(uint32_t inputSource, uint32_t frequency) {
  return loggedStatusOf(
      __func__,
      [&] {
        return isSource(inputSource) && hostReceiver().player().playFirst(inputSource, frequency);
      },
      inputSource, frequency);
}

int AIFW_stop_curr_src() {
  return loggedStatusOf(__func__, [] {
    hostReceiver().player().stopPlaying();
    return true;
  });
}

int AIFW_handle_tuner_mode_change(int mode) {
  return loggedStatusOf(
      __func__, [&] { return hostReceiver().player().followTuner(static_cast<uint32_t>(mode)); },
      mode);
}

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  using Request = AIFW_channel_change_request;
  return loggedStatusOf(
      __func__,
      [&] {
        return request && isSource(request->input_source) &&
               hostReceiver().player().changeChannel(*request);
      },
      memberOf(request, &Request::mode), memberOf(request, &Request::input_source),
      memberOf(request, &Request::major), memberOf(request, &Request::minor),
      memberOf(request, &Request::service_rec));
}

int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!record) return false;
        switch (operation) {
          case AIFW_SERVICE_ADD:
            return hostReceiver().serviceEditor().add(*record);
          case AIFW_SERVICE_MODIFY:
            return hostReceiver().serviceEditor().modify(*record);
          default:
            return false;
        }
      },
      operation, record ? record->service_id.service_rec : 0,
      memberOf(record, &AISRV_service_info::major), memberOf(record, &AISRV_service_info::minor),
      memberOf(record, &AISRV_service_info::AISRV_flags_),
      memberOf(record, &AISRV_service_info::AISRV_fav_group_));
}

int AIFW_change_audio(uint8_t track) {
  return loggedStatusOf(
      __func__, [&] { return hostReceiver().player().chooseAudio(track); }, track);
}

int AIFW_passwd_reqd_non_play_src(int required) {
  return loggedStatusOf(
      __func__,
      [&] {
        hostReceiver().player().setPasswordRequired(required != 0);
        return true;
      },
      required);
}

int AIFW_pwd_unlocked_no_playing(int unlocked) {
  return loggedStatusOf(
      __func__,
      [&] {
        hostReceiver().player().setPasswordGiven(unlocked != 0);
        return true;
      },
      unlocked);
}

int AIFW_pwd_unlocked_no_checking_status(int unlocked) {
  return loggedStatusOf(
      __func__, [&] { return hostReceiver().player().setUnlocked(unlocked != 0); }, unlocked);
}

int AIFW_get_curr_region(AIPC_region_list_t* region) {
  return loggedStatusOf(__func__, [&] {
    if (!region) return false;
    const auto settings = hostReceiver().parental().settings();
    region->region = static_cast<uint32_t>(settings->details.region);
    return true;
  });
}

int AIFW_set_curr_region(int32_t region) {
  return loggedStatusOf(
      __func__,
      [&] {
        return hostReceiver().changeParental([&](atschost::ParentalSettings& settings) {
          settings.details.region = region;
          return atschost::isRegion(region);
        });
      },
      region);
}

int AIFW_user_eas_setting(int32_t* value, int direction) {
  return alertSetting(__func__, &atschost::AlertSettings::Values::level, AIFW_EAS_MAXIMUM, value,
                      direction);
}

int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction) {
  return alertSetting(__func__, &atschost::AlertSettings::Values::repeatedEvents, 1, value,
                      direction);
}

int AIFW_enable_eas_cable_only(int32_t* value, int direction) {
  return alertSetting(__func__, &atschost::AlertSettings::Values::cableOnly, 1, value, direction);
}
