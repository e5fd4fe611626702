// Sends commands to the service.
#ifndef ATSC_TV_SERVICE_CLIENT_H_
#define ATSC_TV_SERVICE_CLIENT_H_

#include <json/value.h>

#include <string>

#include "common/parental.h"
#include "common/service.h"

namespace apps::tv {

// Client of the service. A verbose client shows the JSON texts of both directions on standard
// error.
class Client {
 public:
  explicit Client(bool verbose) : verbose_(verbose) {}

  // Throws Failure(kNoService) if no service is running.
  void requireService() const;

  // Send a command and wait for its reply. A verbose client does not show the reply to sendRaw(),
  // which the caller prints. Throw Failure(kNoService) if no service replies.
  Reply send(const Json::Value& command) const;
  Reply sendRaw(const std::string& command) const;

  // Sends a command whose reply is a JSON object and returns that object. Throws Failure if the
  // reply is not an object.
  Json::Value ask(const Json::Value& command) const;

  // A client may be passed wherever the service is asked.
  operator Ask() const {  // NOLINT(google-explicit-constructor): see above
    return [client = *this](const Json::Value& command) { return client.ask(command); };
  }

  void showReceived(const std::string& text) const;

 private:
  bool verbose_;
};

}  // namespace apps::tv

#endif  // ATSC_TV_SERVICE_CLIENT_H_
