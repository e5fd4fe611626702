// AIFW: the middleware's framework module (initialisation, playing, channel changes).
//
// All functions may be called from any thread and return 0, or another value on failure.
#ifndef ATSC_PLATFORM_AIFW_H_
#define ATSC_PLATFORM_AIFW_H_

#include "aisrv.h"

#ifdef __cplusplus
extern "C" {
#endif

// Initialises the middleware. `mode` is 0. A second call succeeds and changes nothing. Service list
// and settings of the last run are there before this call.
int AIFW_init(int mode);

// Plays the first service of `input_source` whose frequency is `frequency` (Hz); with 0 the first
// one of the whole list. Fails when there is none.
int AIFW_play_first_service(uint32_t input_source, uint32_t frequency);

// Stops playing.
int AIFW_stop_curr_src(void);

enum { AIFW_CHANGE_UP = 0, AIFW_CHANGE_DOWN = 1, AIFW_CHANGE_DIRECT = 5 };

typedef struct AIFW_channel_change_request {
  uint32_t mode;          // AIFW_CHANGE_*
  uint32_t input_source;  // AI_INPUT_*
  uint32_t service_mask;  // AISRV_SERVICE_MASK
  uint16_t major;         // direct mode only
  uint16_t minor;         // direct mode only
  uint32_t reserved;
  uint32_t service_rec;  // 0xFFFF when not known
  uint32_t input_source_again;
} AIFW_channel_change_request;
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, major, 12);
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, minor, 14);
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, service_rec, 20);
ATSC_LAYOUT_SIZE(AIFW_channel_change_request, 28);

// Changes the channel: the next or previous service in number order (wrapping), or the one with the
// given number.
int AIFW_channel_change(const AIFW_channel_change_request* request);

// 1: a locked channel that is not playing needs the password before it plays; 0: it does not.
int AIFW_passwd_reqd_non_play_src(int required);

// 1: the password was given for the channel that is about to play; 0: it was not.
int AIFW_pwd_unlocked_no_playing(int unlocked);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIFW_H_
