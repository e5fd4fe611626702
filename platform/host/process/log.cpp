#include "process/log.h"

#include "process/immortal.h"

namespace atschost {

LoggerCpp& log() {
  static LoggerCpp& logger = immortal<LoggerCpp>("atschost", "receiver");
  return logger;
}

}  // namespace atschost
