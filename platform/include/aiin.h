// AIIN: the middleware's inputs.
#ifndef ATSC_PLATFORM_AIIN_H_
#define ATSC_PLATFORM_AIIN_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AIIN_input_t {
  uint32_t type;   // AI_INPUT_*
  uint32_t tuner;  // number of the tuner that serves this input
  uint32_t reserved_8;
  uint32_t reserved_12;
  uint32_t handle;  // identifies the input in calls of the parental control (AIPC)
  uint32_t reserved[4];
} AIIN_input_t;
ATSC_LAYOUT_OFFSET(AIIN_input_t, handle, 16);
ATSC_LAYOUT_SIZE(AIIN_input_t, 36);

// Returns the details of an input source. `flag` points to 0; the function may leave it unchanged.
int AIIN_get_input_details(uint32_t input_source, uint8_t* flag, AIIN_input_t* details,
                           uint32_t reserved);

// Returns the details of the input source of a service record: 0 and 2 are terrestrial, 1 and 3
// cable.
int AIIN_get_db_no_input_details(uint32_t input_source, AIIN_input_t* details);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIIN_H_
