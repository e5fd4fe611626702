// RMGR: the middleware's resource manager.
#ifndef ATSC_PLATFORM_RMGR_H_
#define ATSC_PLATFORM_RMGR_H_

#ifdef __cplusplus
extern "C" {
#endif

// Reads the stored service list anew, as after it was put in place from outside (a channel list
// that was imported); what is not stored is lost. A store that cannot be read leaves the list as it
// is. Any thread. Returns 0 on success.
int RMGRReload(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_RMGR_H_
