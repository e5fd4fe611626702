// AIAUD: the middleware's audio decoder.
#ifndef ATSC_PLATFORM_AIAUD_H_
#define ATSC_PLATFORM_AIAUD_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What is heard of a dual-mono stream (A/52 acmod 0, two programmes in one).
enum {
  AIAUD_DUAL_STEREO = 0,  // first on the left, second on the right
  AIAUD_DUAL_LEFT = 1,    // the first
  AIAUD_DUAL_RIGHT = 2,   // the second
  AIAUD_DUAL_MIXED = 3,   // both, mixed
};

// Sets the dual-mono mode of every service; stored at once. Any thread. Returns 0 on success; fails
// on an unknown mode, with nothing changed, and when it cannot be stored, with the mode in force.
int AIAUD_set_dual_mode(uint32_t mode);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIAUD_H_
