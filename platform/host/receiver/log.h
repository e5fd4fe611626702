// The receiver's log.
#ifndef ATSC_HOST_RECEIVER_LOG_H_
#define ATSC_HOST_RECEIVER_LOG_H_

#include "logger_cpp.h"

namespace atschost {

// Category "receiver". Lives until the process ends, so that a scan thread may log during exit.
LoggerCpp& log();

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_LOG_H_
