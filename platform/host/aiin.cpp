#include "aiin.h"

#include "receiver/receiver.h"

// One tuner, number 0, serves both inputs.
int AIIN_get_input_details(uint32_t input_source, uint8_t* flag, AIIN_input_details* details,
                           uint32_t) {
  if (!flag || !details || !atschost::is_source(input_source)) return -1;
  *details = {input_source, 0};
  return 0;
}
