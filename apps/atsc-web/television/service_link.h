// Commands of several threads on their way to the service.
#ifndef ATSC_WEB_TELEVISION_SERVICE_LINK_H_
#define ATSC_WEB_TELEVISION_SERVICE_LINK_H_

#include <json/value.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
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
  // Any thread, all of them.
  void serviceIs(bool running) { running_ = running; }
  Sent send(const std::string& command, std::chrono::milliseconds patience);
  Sent send(const Json::Value& command, std::chrono::milliseconds patience);

 private:
  using Clock = std::chrono::steady_clock;

  // Waits for the way. Returns false after the patience.
  bool enter(std::chrono::milliseconds patience);
  void leave();

  std::atomic<bool> running_{false};
  std::mutex mutex_;
  std::condition_variable left_;
  std::optional<Clock::time_point> since_;  // a command is on its way
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_SERVICE_LINK_H_
