#include "receiver/log.h"

namespace atschost {

LoggerCpp& log() {
  static LoggerCpp& logger = *new LoggerCpp("atschost", "receiver");
  return logger;
}

}  // namespace atschost
