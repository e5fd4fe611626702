#ifndef ATSC_TESTS_SUPPORT_LISTENER_H_
#define ATSC_TESTS_SUPPORT_LISTENER_H_

#include <atsc/atsc_tv_server_backend.h>
#include <json/json.h>

#include <mutex>
#include <string>
#include <vector>

// A TV application that stores its callbacks.
class Listener : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* text, char**) override {
    Json::Value message;
    const bool parsed = Json::Reader().parse(text, message);
    const std::lock_guard<std::mutex> lock(mutex_);
    messages_.push_back(message);
    return parsed ? 0 : -1;
  }

  // Returns the callbacks from number `from` on: all, or those of a kind. Callbacks of a scan have
  // their "msg" as kind.
  std::vector<Json::Value> heard(size_t from, const std::string& kind = "") {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Json::Value> found;
    for (size_t i = from; i < messages_.size(); ++i) {
      const Json::Value& message = messages_[i];
      if (kind.empty() || message[message["cbtype"] == "SCAN" ? "msg" : "cbtype"] == kind) {
        found.push_back(message);
      }
    }
    return found;
  }

  size_t count() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return messages_.size();
  }
  size_t count(const std::string& kind) { return heard(0, kind).size(); }

 private:
  std::mutex mutex_;
  std::vector<Json::Value> messages_;
};

#endif  // ATSC_TESTS_SUPPORT_LISTENER_H_
