// The log of the host platform.
#ifndef ATSC_HOST_PROCESS_LOG_H_
#define ATSC_HOST_PROCESS_LOG_H_

#include "logger_cpp.h"

namespace atschost {

// Category "receiver". Never destroyed: threads may log while the process exits.
LoggerCpp& log();

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_LOG_H_
