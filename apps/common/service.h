// The service process, and this process as its TV application.
#ifndef ATSC_APPS_COMMON_SERVICE_H_
#define ATSC_APPS_COMMON_SERVICE_H_

#include <atsc/atsc_tv_server_backend.h>
#include <json/value.h>

#include <optional>
#include <string>

namespace apps {

struct Reply {
  int result;                       // 0 for success, else the error
  std::optional<std::string> text;  // the reply text, for commands that have one
};

// Returns a command without parameters.
Json::Value command(const char* commandClass, const char* name);

// Returns the process id of the running service, 0 if no service is running. Any thread.
int servicePid();

// Sends the text of a command and waits for its reply, without a limit. Returns nothing if no
// service answers: none runs, it has ended, or the text is too long. Any thread; one command at a
// time is on its way.
std::optional<Reply> transmit(const std::string& command);

// Registers this process as the TV application; `backend` must live until the process ends. Returns
// 0 on success, the process id of the TV application that is registered, or -1 if a file is in the
// way. Can be tried again.
int registerTv(ATSCBUS::ATSCTVServerBackend* backend);

// The file that holds the name of the TV application.
inline constexpr const char* kTvFile = "/tmp/.BUS.atsc.qel.tv.srv";

}  // namespace apps

#endif  // ATSC_APPS_COMMON_SERVICE_H_
