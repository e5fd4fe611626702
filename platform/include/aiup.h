// AIUP: the middleware's persistent settings.
#ifndef ATSC_PLATFORM_AIUP_H_
#define ATSC_PLATFORM_AIUP_H_

#ifdef __cplusplus
extern "C" {
#endif

// Passes all settings to the store. Any thread. Returns 0 on success.
int AIUP_store_all(void);

// Writes the store so that its content survives a power cut. Any thread. Returns 0 on success.
int AIUP_sync(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIUP_H_
