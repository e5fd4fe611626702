#include "aife.h"

#include "receiver/receiver.h"

using atschost::loggedStatusOf;
using atschost::Receiver;

namespace {

bool isTuner(uint32_t tuner, uint32_t path) {
  return tuner == AIFE_MAIN_TUNER && path == AIFE_MAIN_PATH;
}

}  // namespace

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!isTuner(tuner, path) || !details) return false;
        *details = Receiver::instance().tuning();
        return true;
      },
      tuner, path, details ? &details->frequency : nullptr);
}

int AIFE_tune_stop_request(uint32_t tuner, uint32_t path) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!isTuner(tuner, path)) return false;
        Receiver::instance().stopTuning();
        return true;
      },
      tuner, path);
}
