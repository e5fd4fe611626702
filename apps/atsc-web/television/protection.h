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

// Returns what a command needs. What is sent has to be this value, written again: the text from
// which it was read may mean something else to the service, such as one that has a key twice.
Protection protection(const Json::Value& command);

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_PROTECTION_H_
