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

// Limits the log of faults that a peer can cause repeatedly: one line per kind of fault in ten
// seconds. Not thread-safe.
class Faults {
 public:
  // Returns whether to log a fault now. Returns true also when there is no memory to record the
  // fault.
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
