// AIIN: the middleware's inputs.
#ifndef ATSC_PLATFORM_AIIN_H_
#define ATSC_PLATFORM_AIIN_H_

#include "middleware_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AIIN_input_details {
  uint32_t type;   // AI_INPUT_*
  uint32_t tuner;  // number of the tuner that serves this input
} AIIN_input_details;

// Describes an input source. `flag` is lent with 0. Any thread. Returns 0 on success.
int AIIN_get_input_details(uint32_t input_source, uint8_t* flag, AIIN_input_details* details,
                           uint32_t reserved);

// Describes the input source that a service record names: 0 and 2 are terrestrial, 1 and 3 cable.
// Any thread. Returns 0 on success.
int AIIN_get_db_no_input_details(uint32_t input_source, AIIN_input_details* details);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIIN_H_
