// RMGR: the middleware's resource manager.
#ifndef ATSC_PLATFORM_RMGR_H_
#define ATSC_PLATFORM_RMGR_H_

#ifdef __cplusplus
extern "C" {
#endif

// Reads the stored service list again, for example after another program has replaced it (an
// imported channel list). Changes that are not stored are lost. Atomic (see middleware_types.h):
// when the store cannot be read, the list stays as it is. Any thread. Returns 0 on success.
int RMGRReload(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_RMGR_H_
