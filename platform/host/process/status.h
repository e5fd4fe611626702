// Status of the process in its log.
#ifndef ATSC_HOST_PROCESS_STATUS_H_
#define ATSC_HOST_PROCESS_STATUS_H_

namespace atschost {

// Registers the function that writes the state of the middleware to the log. Replaces an earlier
// registration. Any thread.
void setStatusWriter(void (*write)());

// Calls the registered function, if any.
void writeStatus();

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_STATUS_H_
