#include "aiin.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::loggedStatusOf;

namespace {

// One tuner serves both inputs.
AIIN_input_t inputDetails(uint32_t source) {
  AIIN_input_t details{};
  details.type = source;
  details.tuner = AIFE_MAIN_TUNER;
  details.handle = source == AI_INPUT_TERRESTRIAL ? 1 : 2;
  return details;
}

}  // namespace

int AIIN_get_input_details(uint32_t inputSource, uint8_t* flag, AIIN_input_t* details,
                           uint32_t reserved) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!flag || !details || !atschost::isSource(inputSource)) return false;
        *details = inputDetails(inputSource);
        return true;
      },
      inputSource, reserved);
}

int AIIN_get_db_no_input_details(uint32_t inputSource, AIIN_input_t* details) {
  return loggedStatusOf(
      __func__,
      [&] {
        const uint32_t source = atschost::sourceOfId(inputSource);
        if (!details || source == 0) return false;
        *details = inputDetails(source);
        return true;
      },
      inputSource);
}
