// Controls of the host platform for programs on a PC. On a TV set the build fixes these settings.
#ifndef ATSC_HOST_H_
#define ATSC_HOST_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Every process that loads the library constructs the service server, but only the service process
// may serve its name. A server with this name is inactive until its process claims the name.
#define ATSC_HOST_SERVICE_NAME "atsc.qel.service.srv"

// Takes a BUS name for this process. Its socket exists from now on, and callers wait. Call before
// any work that two service processes must not do at the same time. Returns 0 on success, the
// process id of the live process that has the name, or -1 after an error, which is logged. Main
// thread.
int ATSC_host_claim(const char* name);

// Starts to answer callers of the claimed name. Main thread.
void ATSC_host_serve(const char* name);

// Returns the process id of the live process that serves a BUS name, 0 when there is none. Any
// thread.
int ATSC_host_find(const char* name);

// Returns 0 if the last transact() of the calling thread received a reply, or -1 when no process
// served the name, the peer died, or the parcel was too large.
int ATSC_host_last_transact(void);

// Sets the folder with the broadcast: vsb/<frequency in Hz>.ts and qam/<frequency in Hz>.ts.
// Overrides the environment variable ATSC_AIR. Call before the middleware is used.
void ATSC_host_set_air(const char* folder);

// Sets how long the scan stays on a frequency, in milliseconds (default 20). Call before a scan.
void ATSC_host_set_dwell(unsigned int milliseconds);

// Sets the receiver's clock, in Unix seconds. The clock runs on from there, and the broadcast's
// system time no longer sets it. Any thread.
void ATSC_host_set_clock(uint32_t unix_seconds);

// Sets how a playing stream is read after its tables are known; until then it is read fast. 1: as
// fast as possible, with a short pause after each pass of the file. 0 (default): in real time, by
// its PCRs, else by its system time, else at 1000 packets a second. Any thread.
void ATSC_host_set_fast(int fast);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_HOST_H_
