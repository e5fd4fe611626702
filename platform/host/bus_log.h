#ifndef ATSC_HOST_BUS_LOG_H_
#define ATSC_HOST_BUS_LOG_H_

#include "logger_cpp.h"

namespace bus {

// The logger of the BUS. Never destroyed: threads may still use the BUS while the process exits.
inline LoggerCpp& log() {
  static LoggerCpp& logger = *new LoggerCpp("BUS", "bus");
  return logger;
}

}  // namespace bus

#endif  // ATSC_HOST_BUS_LOG_H_
