// AIST: the middleware's system time.
#ifndef ATSC_PLATFORM_AIST_H_
#define ATSC_PLATFORM_AIST_H_

#include "middleware_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// The receiver's clock: seconds since 1970-01-01 00:00:00 UTC, leap seconds not counted. It may
// stand still or jump. Any thread. Returns 0 on success.
int AIST_get_cur_time_secs(uint32_t* seconds);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIST_H_
