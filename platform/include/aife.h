// AIFE: the middleware's front end (tuners).
#ifndef ATSC_PLATFORM_AIFE_H_
#define ATSC_PLATFORM_AIFE_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

// The tuner of the playing service, and its main tuning path.
enum { AIFE_MAIN_TUNER = 1 };
enum { AIFE_MAIN_PATH = 0x80001 };

typedef struct AIFE_tuning_details {
  uint32_t frequency;   // Hz; 0 before the first tuning
  uint32_t modulation;  // AI_MODULATION_*
  uint32_t room[62];    // space for further fields
} AIFE_tuning_details;

// Returns the frequency and modulation to which `tuner` is tuned on `path`.
int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details);

// Stops tuning: the tuner leaves its carrier, and a service of that carrier stops playing. A tuner
// that is not tuned stays untuned. Fails for an unknown tuner.
int AIFE_tune_stop_request(uint32_t tuner, uint32_t path);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIFE_H_
