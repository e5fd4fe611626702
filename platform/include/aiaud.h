// AIAUD: the middleware's audio decoder.
#ifndef ATSC_PLATFORM_AIAUD_H_
#define ATSC_PLATFORM_AIAUD_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Output of a dual-mono stream (A/52 acmod 0: two programmes in one stream).
enum {
  AIAUD_DUAL_STEREO = 0,  // first programme on the left, second on the right
  AIAUD_DUAL_LEFT = 1,    // the first programme
  AIAUD_DUAL_RIGHT = 2,   // the second programme
  AIAUD_DUAL_MIXED = 3,   // both, mixed
};

// Sets the dual-mono mode of all services. Applied and stored (see middleware_types.h). Fails for
// an unknown mode, and changes nothing then. Any thread. Returns 0 on success.
int AIAUD_set_dual_mode(uint32_t mode);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIAUD_H_
