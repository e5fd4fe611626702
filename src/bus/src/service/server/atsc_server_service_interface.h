// Common functions of the command handlers.
#ifndef ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_
#define ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_

#include <aisrv.h>
#include <json/json.h>

#include <exception>
#include <string>
#include <vector>

#include "atsc_log.h"
#include "atsc_text.h"

namespace atsc {

// Returns the input source with the name in a request: "VSB" is terrestrial, any other name cable.
uint32_t sourceNamed(const std::string& name);

// Return a member of a request, or `absent` if it is missing or its type cannot be converted.
std::string textMember(const Json::Value& request, const char* key, const char* absent);
uint32_t unsignedMember(const Json::Value& request, const char* key, uint32_t absent);
// Returns whether there is such a member that can be converted.
bool hasMember(const Json::Value& request, const char* key, Json::ValueType type);

// Logs the reason why a handler refuses its request. Returns -1.
int refused(LoggerCpp& logger, const LogPlace& place, const std::exception& reason);

// A service record with a name buffer of `slot` bytes for the middleware to fill.
struct LentService {
  explicit LentService(size_t slot = kNameSlot);
  LentService(const LentService&) = delete;
  LentService& operator=(const LentService&) = delete;

  AISRV_service_info record{};
  std::vector<uint8_t> name;
};

// Sets `*result` to the text of a reply, allocated with calloc(), for the sender of the command.
// `*result` stays null when memory is exhausted. Returns the text.
std::string giveReply(const Json::Value& reply, char** result);

// Common steps of a handler of parental control or alerts. Log lines carry the name of the handler;
// `line` is the line of the caller.
class Handler {
 public:
  // Logs the start of the handler.
  Handler(LoggerCpp& logger, const LogPlace& place);

  // Logs the reason why the command is refused. Returns -1.
  int refuse(const char* reason, int line = __builtin_LINE()) const;

  // Logs a status other than 0 as a failed call of `function`. Returns the status.
  int check(const char* function, int status, int line = __builtin_LINE()) const;

  // Logs the end of the handler. Returns 0.
  int leave(int line = __builtin_LINE()) const;

  // Calls check(), then leave(). Returns the result of the handler.
  int leave(const char* function, int status, int line = __builtin_LINE()) const;

  // Sets the reply and logs it.
  void answer(const Json::Value& reply, char** result, int line = __builtin_LINE()) const;

  // Completes a query that called `function`: unless the call failed, `fill` fills the reply and
  // returns 0, or -1 to end the handler with -1. Then sets and logs the reply and calls leave().
  template <typename Fill>
  int answer(const char* function, int status, char** result, Fill fill,
             int line = __builtin_LINE()) const {
    if (status == 0) {
      Json::Value reply;
      if (fill(reply) != 0) return -1;
      answer(reply, result, line);
    }
    return leave(function, status, line);
  }

 private:
  LoggerCpp& logger_;
  const LogPlace place_;
};

// Returns the channel-table index of a service of the current input source, ATSC_CHANNEL_NOT_FOUND
// when there is no such row.
int findChannelIndex(const AISRV_service_info& service, uint32_t source_id);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_
