// Functions that the service process calls. Not part of the library's interfaces: each platform has
// its own way to determine which process serves.
#ifndef MINIMAL_PLATFORM_H_
#define MINIMAL_PLATFORM_H_

#ifdef __cplusplus
extern "C" {
#endif

// Makes this process the service process: takes the BUS name that TV applications call. Their calls
// wait for MINIMAL_serve(). Call it before ATSC_Service_init(), so that no second process writes
// the databases. Returns 0, or -1 if the name is not free or the library is not loaded, and logs
// the reason.
int MINIMAL_claim(void);

// Starts to answer calls. Call it after ATSC_Service_db_init(). Returns 0, or -1 without
// MINIMAL_claim().
int MINIMAL_serve(void);

#ifdef __cplusplus
}
#endif

#endif  // MINIMAL_PLATFORM_H_
