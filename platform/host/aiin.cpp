#include "aiin.h"

#include "receiver/receiver.h"

using atschost::logged_status_of;

// One tuner serves both inputs.
int AIIN_get_input_details(uint32_t input_source, uint8_t* flag, AIIN_input_details* details,
                           uint32_t reserved) {
  return logged_status_of(
      __func__,
      [&] {
        if (!flag || !details || !atschost::is_source(input_source)) return false;
        *details = {input_source, AIFE_MAIN_TUNER};
        return true;
      },
      input_source, reserved);
}

int AIIN_get_db_no_input_details(uint32_t input_source, AIIN_input_details* details) {
  return logged_status_of(
      __func__,
      [&] {
        const uint32_t source = atschost::source_of_id(input_source);
        if (!details || source == 0) return false;
        *details = {source, AIFE_MAIN_TUNER};
        return true;
      },
      input_source);
}
