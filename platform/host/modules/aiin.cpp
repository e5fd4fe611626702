#include "aiin.h"

#include "receiver/receiver.h"

using atschost::logged_status_of;

namespace {

// One tuner serves both inputs.
AIIN_input_t input_details(uint32_t source) {
  AIIN_input_t details{};
  details.type = source;
  details.tuner = AIFE_MAIN_TUNER;
  details.handle = source == AI_INPUT_TERRESTRIAL ? 1 : 2;
  return details;
}

}  // namespace

int AIIN_get_input_details(uint32_t input_source, uint8_t* flag, AIIN_input_t* details,
                           uint32_t reserved) {
  return logged_status_of(
      __func__,
      [&] {
        if (!flag || !details || !atschost::is_source(input_source)) return false;
        *details = input_details(input_source);
        return true;
      },
      input_source, reserved);
}

int AIIN_get_db_no_input_details(uint32_t input_source, AIIN_input_t* details) {
  return logged_status_of(
      __func__,
      [&] {
        const uint32_t source = atschost::source_of_id(input_source);
        if (!details || source == 0) return false;
        *details = input_details(source);
        return true;
      },
      input_source);
}
