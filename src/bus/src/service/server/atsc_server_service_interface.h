// What the command handlers share.
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

// The input source of a request's text: "VSB" is terrestrial, anything else cable.
uint32_t sourceNamed(const std::string& name);

// A member of a request where a handler has to do without one of the wrong type: `absent` when the
// member is absent or cannot be converted.
std::string textMember(const Json::Value& request, const char* key, const char* absent);
uint32_t unsignedMember(const Json::Value& request, const char* key, uint32_t absent);
// Whether there is such a member that can be converted.
bool hasMember(const Json::Value& request, const char* key, Json::ValueType type);

// Logs why a handler refuses its request. Returns -1.
int refused(LoggerCpp& logger, const LogPlace& place, const std::exception& reason);

// A service record with a name buffer of `slot` bytes for the middleware to fill.
struct LentService {
  explicit LentService(size_t slot = kNameSlot);
  LentService(const LentService&) = delete;
  LentService& operator=(const LentService&) = delete;

  AISRV_service_info record{};
  std::vector<uint8_t> name;
};

// Hands a reply over to the receiver of the command: as a calloc'ed text in `*result`, which stays
// null for want of memory. Returns the text.
std::string giveReply(const Json::Value& reply, char** result);

// What the handlers of parental control and alerts have in common. Its log lines are its handler's;
// `line` is that of the caller.
class Handler {
 public:
  // Logs the beginning of the handler.
  Handler(LoggerCpp& logger, const LogPlace& place);

  // Logs why the command is refused. Returns -1.
  int refuse(const char* reason, int line = __builtin_LINE()) const;

  // Logs a status other than 0 as a failed call of `function`. Returns the status.
  int check(const char* function, int status, int line = __builtin_LINE()) const;

  // Logs the end of the handler. Returns 0.
  int leave(int line = __builtin_LINE()) const;

  // check(), then leave(). Returns the handler's result.
  int leave(const char* function, int status, int line = __builtin_LINE()) const;

  // Hands a reply over and shows it.
  void answer(const Json::Value& reply, char** result, int line = __builtin_LINE()) const;

  // The same, then leave(), for a query that called `function`: `fill` is given the reply, unless
  // the call failed, and returns 0, or -1 to end the handler with it.
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

// The channel-table index of a service of the current input source, ATSC_CHANNEL_NOT_FOUND when
// there is no such row.
int findChannelIndex(const AISRV_service_info& service, uint32_t source_id);

}  // namespace atsc

#endif  // ATSC_ATSC_SERVER_SERVICE_INTERFACE_H_
