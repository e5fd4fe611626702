#include "aifw.h"

#include "receiver/receiver.h"

using atschost::is_source;
using atschost::Receiver;
using atschost::status_of;

int AIFW_init(int) {
  return status_of(__func__, [] {
    Receiver::instance().start();
    return true;
  });
}

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  return status_of(__func__, [&] {
    Receiver::instance().set_callback(callback);
    return true;
  });
}

int AIFW_get_event_update_data(AIFW_event_update_data* data) {
  return status_of(__func__, [&] {
    if (!data) return false;
    *data = Receiver::instance().events().update_data();
    return true;
  });
}

int AIFW_get_EAS_priority(uint8_t* priority) {
  return status_of(__func__, [&] {
    if (!priority) return false;
    *priority = Receiver::instance().events().alert_priority();
    return true;
  });
}

int AIFW_play_first_service(uint32_t input_source, uint32_t frequency) {
  return status_of(__func__, [&] {
    return is_source(input_source) && Receiver::instance().play_first(input_source, frequency);
  });
}

int AIFW_stop_curr_src() {
  return status_of(__func__, [] {
    Receiver::instance().stop_playing();
    return true;
  });
}

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  return status_of(__func__, [&] {
    return request && is_source(request->input_source) &&
           Receiver::instance().change_channel(*request);
  });
}

int AIFW_passwd_reqd_non_play_src(int required) {
  return status_of(__func__, [&] {
    Receiver::instance().set_password_required(required != 0);
    return true;
  });
}

int AIFW_pwd_unlocked_no_playing(int unlocked) {
  return status_of(__func__, [&] {
    Receiver::instance().set_password_given(unlocked != 0);
    return true;
  });
}
