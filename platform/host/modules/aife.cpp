#include "aife.h"

#include "receiver/receiver.h"

using atschost::logged_status_of;
using atschost::Receiver;

namespace {

bool is_tuner(uint32_t tuner, uint32_t path) {
  return tuner == AIFE_MAIN_TUNER && path == AIFE_MAIN_PATH;
}

}  // namespace

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  return logged_status_of(
      __func__,
      [&] {
        if (!is_tuner(tuner, path) || !details) return false;
        *details = Receiver::instance().tuning();
        return true;
      },
      tuner, path, details ? &details->frequency : nullptr);
}

int AIFE_tune_stop_request(uint32_t tuner, uint32_t path) {
  return logged_status_of(
      __func__,
      [&] {
        if (!is_tuner(tuner, path)) return false;
        Receiver::instance().stop_tuning();
        return true;
      },
      tuner, path);
}
