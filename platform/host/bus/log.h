#ifndef ATSC_HOST_BUS_LOG_H_
#define ATSC_HOST_BUS_LOG_H_

#include <chrono>
#include <exception>
#include <map>
#include <string>

#include "logger_cpp.h"
#include "process/immortal.h"

namespace bus {

// The logger of the BUS. Never destroyed: threads may still use the BUS while the process exits.
inline LoggerCpp& log() {
  static LoggerCpp& logger = atschost::immortal<LoggerCpp>("BUS", "bus");
  return logger;
}

// Faults that a peer may cause as often as it likes: of each kind one line in ten seconds is
// logged. Not thread-safe.
class Faults {
 public:
  // Whether to log a fault now; yes when memory for remembering it is lacking.
  bool due(const char* kind) noexcept {
    try {
      const auto now = std::chrono::steady_clock::now();
      const auto [last, first] = last_.emplace(kind, now);
      if (!first && now - last->second < std::chrono::seconds(10)) return false;
      last->second = now;
    } catch (const std::exception&) {
    }
    return true;
  }

 private:
  std::map<std::string, std::chrono::steady_clock::time_point> last_;
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_LOG_H_
