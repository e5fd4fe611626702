#include "aife.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::loggedStatusOf;

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
        *details = hostReceiver().player().tuning();
        return true;
      },
      tuner, path, details ? &details->frequency : nullptr);
}

int AIFE_tune_stop_request(uint32_t tuner, uint32_t path) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!isTuner(tuner, path)) return false;
        hostReceiver().player().stopTuning();
        return true;
      },
      tuner, path);
}
