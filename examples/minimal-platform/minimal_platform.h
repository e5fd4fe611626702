// What the service process tells this platform. No part of the library's interfaces: every set has
// its own way to say which process serves.
#ifndef MINIMAL_PLATFORM_H_
#define MINIMAL_PLATFORM_H_

#ifdef __cplusplus
extern "C" {
#endif

// Makes this process the service process: takes the BUS name that its TV applications call. Who
// calls from now on waits for MINIMAL_serve(). Before ATSC_Service_init(), so that no second
// process works on the databases. Returns 0, or -1 when the name is not free or the library not
// loaded; the log says which.
int MINIMAL_claim(void);

// Begins to answer. After ATSC_Service_db_init(). Returns 0, or -1 without MINIMAL_claim().
int MINIMAL_serve(void);

#ifdef __cplusplus
}
#endif

#endif  // MINIMAL_PLATFORM_H_
