// Commands of several threads on their way to the service.
#ifndef ATSC_WEB_TELEVISION_SERVICE_LINK_H_
#define ATSC_WEB_TELEVISION_SERVICE_LINK_H_

#include <json/value.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "common/service.h"

namespace web {

enum class LinkFault { kNone, kNoService, kBusy };

struct Sent {
  LinkFault fault = LinkFault::kNone;
  int result = 0;
  std::optional<std::string> text = {};  // the reply
  double milliseconds = 0;               // from the sending to the reply
};

// The library sends one command at a time and waits for its reply without a limit. A thread that
// finds the way taken gives up after its own patience here, or at once when the command of another
// one takes very long: a service that hangs holds one thread.
class ServiceLink {
 public:
  // Any thread.
  Sent send(const std::string& command, std::chrono::milliseconds patience);
  Sent send(const Json::Value& command, std::chrono::milliseconds patience);

 private:
  using Clock = std::chrono::steady_clock;

  std::timed_mutex way_;
  std::atomic<Clock::rep> since_{0};  // when the command on its way was sent; 0: there is none
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_SERVICE_LINK_H_
