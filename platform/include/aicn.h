// AICN: the middleware's channel module (what is playing, from which source).
//
// All functions may be called from any thread; those that return a status return 0 on success.
#ifndef ATSC_PLATFORM_AICN_H_
#define ATSC_PLATFORM_AICN_H_

#include "aisrv.h"

#ifdef __cplusplus
extern "C" {
#endif

// Copies the current service; the record lends a name buffer. Fails when there is none.
int AICN_get_current(AISRV_service_info* record);

// The current input source, AI_INPUT_*.
int AICN_get_curr_input_source(void);

// The play state, for diagnostics: 0 stopped, 1 playing.
int AICN_get_chan_state(void);

// 1: services are not played by themselves (while a scan runs); 0: they are.
int AICN_set_skip_play_srv(int skip);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AICN_H_
