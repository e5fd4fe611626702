// Control of the host platform by the programs of a PC: what a set fixes at build time.
#ifndef ATSC_HOST_H_
#define ATSC_HOST_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Every process that loads the library constructs the service server; only the service process may
// answer its name. A server named here stays dormant until its process claims the name.
#define ATSC_HOST_SERVICE_NAME "atsc.qel.service.srv"

// Takes a BUS name for this process: its socket exists from now on, callers wait. Call before
// anything that two services must not both do. Returns 0; or the process id of the live process
// that has the name; or -1 (reason in the log). Main thread.
int ATSC_host_claim(const char* name);

// Begins to answer the claimed name. Main thread.
void ATSC_host_serve(const char* name);

// The process id of the live process that serves a BUS name, 0 when there is none. Any thread.
int ATSC_host_find(const char* name);

// Whether the last transact() of the calling thread got a reply: 0, or -1 when nobody served the
// name, the peer died, or the parcel could not be carried.
int ATSC_host_last_transact(void);

// The folder with the broadcast: vsb/<frequency in Hz>.ts and qam/<frequency in Hz>.ts. Overrides
// the environment variable ATSC_AIR. Before the middleware is used.
void ATSC_host_set_air(const char* folder);

// How long the scan stays on a frequency, in milliseconds (default 20). Before a scan.
void ATSC_host_set_dwell(unsigned int milliseconds);

// Starts the receiver's clock at a time, Unix seconds, from where it runs on; the broadcast's
// system time sets it no more. Any thread.
void ATSC_host_set_clock(uint32_t unix_seconds);

// How a playing stream is read once its tables are known, until when it is read fast. 1: as fast as
// it can be read, with a short pause after each time; 0 (default): at its own pace, by its PCRs,
// else by its system time, else at 1000 packets a second. Any thread.
void ATSC_host_set_fast(int fast);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_HOST_H_
