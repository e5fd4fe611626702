// What the process shows of itself in its log.
#ifndef ATSC_HOST_PROCESS_STATUS_H_
#define ATSC_HOST_PROCESS_STATUS_H_

namespace atschost {

// Registers what writes the state of the middleware to the log; any thread, the last one counts.
void setStatusWriter(void (*write)());

// Calls it; nothing without one.
void writeStatus();

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_STATUS_H_
