// Who may send which command.
#ifndef ATSC_WEB_TELEVISION_PROTECTION_H_
#define ATSC_WEB_TELEVISION_PROTECTION_H_

#include <json/value.h>

namespace web {

enum class Protection {
  kFree,       // anybody
  kProtected,  // who gave the PIN, or anybody while there is none
  kPin,        // only who gave the PIN: there has to be one
  kConsole,    // only the console
  kMalformed,  // nobody: no command, or one with characters that C texts cannot hold
};

// Returns what a command needs. It is to be sent as this value is written: a text that was parsed
// may mean something else to the service, for example with a key that it has twice.
Protection protection(const Json::Value& command);

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_PROTECTION_H_
