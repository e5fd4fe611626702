// AIVC: the middleware's video decoder.
#ifndef ATSC_PLATFORM_AIVC_H_
#define ATSC_PLATFORM_AIVC_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Closes the picture of play path `path` (0). Sound, tables and events continue. The next service
// that is played has a picture again. Any thread. Returns 0 on success.
int AIVC_close_video(uint32_t path);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIVC_H_
