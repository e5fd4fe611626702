// Commands to the service.
#ifndef ATSC_TV_SERVICE_CLIENT_H_
#define ATSC_TV_SERVICE_CLIENT_H_

#include <json/value.h>

#include <optional>
#include <string>

namespace tv {

struct Reply {
  int result;                       // 0, or what the command returned on failure
  std::optional<std::string> text;  // reply text, if the command has one
};

// A command without further members.
Json::Value command(const char* commandClass, const char* name);

// Shows the JSON texts of both directions on standard error when verbose.
class Client {
 public:
  explicit Client(bool verbose) : verbose_(verbose) {}

  // Throws Failure(kNoService) when no service runs.
  void requireService() const;

  // Sends a command and waits for its answer; the raw one leaves it to the caller to show that.
  // Throws Failure(kNoService) when there is none.
  Reply send(const Json::Value& command) const;
  Reply sendRaw(const std::string& command) const;

  // The object that a command answers with. Throws Failure when it does not.
  Json::Value ask(const Json::Value& command) const;

  void showReceived(const std::string& text) const;

 private:
  bool verbose_;
};

// The process id of the running service, 0 when there is none.
int servicePid();

}  // namespace tv

#endif  // ATSC_TV_SERVICE_CLIENT_H_
