// AIFE: the middleware's front end (tuners).
#ifndef ATSC_PLATFORM_AIFE_H_
#define ATSC_PLATFORM_AIFE_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

// The tuner of the picture, and its main tuning path.
enum { AIFE_MAIN_TUNER = 1 };
enum { AIFE_MAIN_PATH = 0x80001 };

typedef struct AIFE_tuning_details {
  uint32_t frequency;   // Hz; 0 when the tuner has not been tuned
  uint32_t modulation;  // AI_MODULATION_*
  uint32_t room[62];    // a size of ours
} AIFE_tuning_details;

// What `tuner` is tuned to on `path`. Any thread. Returns 0 on success.
int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details);

// Stops tuning: the tuner leaves its carrier, and what was received from it plays no more. A tuner
// that is not tuned stays so. Any thread. Returns 0 on success, another value for an unknown tuner.
int AIFE_tune_stop_request(uint32_t tuner, uint32_t path);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIFE_H_
