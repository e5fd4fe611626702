#include "aifw.h"

#include "receiver/receiver.h"

using atschost::is_source;
using atschost::logged_status_of;
using atschost::member_of;
using atschost::Receiver;

namespace {

// One of the alerts' settings, with values from 0 to `max`.
int alert_setting(const char* function, int32_t atschost::AlertSettings::Values::*which,
                  int32_t max, int32_t* value, int direction) {
  return logged_status_of(
      function,
      [&] {
        Receiver& receiver = Receiver::instance();
        if (!value) return false;
        if (direction == AIFW_EAS_READ) {
          *value = receiver.alert_setting(which);
          return true;
        }
        return direction == AIFW_EAS_WRITE && *value >= 0 && *value <= max &&
               receiver.set_alert_setting(which, *value);
      },
      value, direction);
}

}  // namespace

int AIFW_init(int mode) {
  return logged_status_of(
      __func__,
      [] {
        Receiver::instance().start();
        return true;
      },
      mode);
}

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  return logged_status_of(
      __func__,
      [&] {
        Receiver::instance().set_callback(callback);
        return true;
      },
      callback != nullptr);
}

int AIFW_get_event_update_data(AIFW_event_update_data* data) {
  return logged_status_of(__func__, [&] {
    if (!data) return false;
    *data = Receiver::instance().events().update_data();
    return true;
  });
}

int AIFW_get_EAS_priority(uint8_t* priority) {
  return logged_status_of(
      __func__,
      [&] {
        if (!priority) return false;
        *priority = Receiver::instance().events().alert_priority();
        return true;
      },
      priority);
}

int AIFW_powerTransition_request(int powerdown) {
  return logged_status_of(
      __func__,
      [&] {
        if (powerdown != 0) return Receiver::instance().enter_standby();
        Receiver::instance().leave_standby();
        return true;
      },
      powerdown);
}

int AIFW_play_src(uint32_t path, uint32_t input_source) {
  return logged_status_of(
      __func__,
      [&] {
        return path == 0 && is_source(input_source) &&
               Receiver::instance().play_source(input_source);
      },
      path, input_source);
}

int AIFW_play_curr_src() {
  return logged_status_of(__func__, [] {
    Receiver& receiver = Receiver::instance();
    return receiver.play_source(receiver.current_source());
  });
}

int AIFW_play_first_service(uint32_t input_source, uint32_t frequency) {
  return logged_status_of(
      __func__,
      [&] {
        return is_source(input_source) && Receiver::instance().play_first(input_source, frequency);
      },
      input_source, frequency);
}

int AIFW_stop_curr_src() {
  return logged_status_of(__func__, [] {
    Receiver::instance().stop_playing();
    return true;
  });
}

int AIFW_handle_tuner_mode_change(int mode) {
  return logged_status_of(
      __func__, [&] { return Receiver::instance().follow_tuner(static_cast<uint32_t>(mode)); },
      mode);
}

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  using Request = AIFW_channel_change_request;
  return logged_status_of(
      __func__,
      [&] {
        return request && is_source(request->input_source) &&
               Receiver::instance().change_channel(*request);
      },
      member_of(request, &Request::mode), member_of(request, &Request::input_source),
      member_of(request, &Request::major), member_of(request, &Request::minor),
      member_of(request, &Request::service_rec));
}

int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record) {
  return logged_status_of(
      __func__,
      [&] {
        if (!record) return false;
        switch (operation) {
          case AIFW_SERVICE_ADD:
            return Receiver::instance().add_service(*record);
          case AIFW_SERVICE_MODIFY:
            return Receiver::instance().modify_service(*record);
          default:
            return false;
        }
      },
      operation, record ? record->service_id.service_rec : 0,
      member_of(record, &AISRV_service_info::major), member_of(record, &AISRV_service_info::minor),
      member_of(record, &AISRV_service_info::AISRV_flags_),
      member_of(record, &AISRV_service_info::AISRV_fav_group_));
}

int AIFW_change_audio(uint8_t track) {
  return logged_status_of(
      __func__, [&] { return Receiver::instance().choose_audio(track); }, track);
}

int AIFW_passwd_reqd_non_play_src(int required) {
  return logged_status_of(
      __func__,
      [&] {
        Receiver::instance().set_password_required(required != 0);
        return true;
      },
      required);
}

int AIFW_pwd_unlocked_no_playing(int unlocked) {
  return logged_status_of(
      __func__,
      [&] {
        Receiver::instance().set_password_given(unlocked != 0);
        return true;
      },
      unlocked);
}

int AIFW_pwd_unlocked_no_checking_status(int unlocked) {
  return logged_status_of(
      __func__, [&] { return Receiver::instance().set_unlocked(unlocked != 0); }, unlocked);
}

int AIFW_get_curr_region(AIPC_region_list_t* region) {
  return logged_status_of(__func__, [&] {
    if (!region) return false;
    const auto settings = Receiver::instance().parental().settings();
    region->region = static_cast<uint32_t>(settings->details.region);
    return true;
  });
}

int AIFW_set_curr_region(int32_t region) {
  return logged_status_of(
      __func__,
      [&] {
        return Receiver::instance().change_parental([&](atschost::ParentalSettings& settings) {
          settings.details.region = region;
          return atschost::is_region(region);
        });
      },
      region);
}

int AIFW_user_eas_setting(int32_t* value, int direction) {
  return alert_setting(__func__, &atschost::AlertSettings::Values::level, AIFW_EAS_MAXIMUM, value,
                       direction);
}

int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction) {
  return alert_setting(__func__, &atschost::AlertSettings::Values::repeated_events, 1, value,
                       direction);
}

int AIFW_enable_eas_cable_only(int32_t* value, int direction) {
  return alert_setting(__func__, &atschost::AlertSettings::Values::cable_only, 1, value, direction);
}
