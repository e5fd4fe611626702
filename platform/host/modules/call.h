// Error handling and logging of the middleware's functions.
#ifndef ATSC_HOST_MODULES_CALL_H_
#define ATSC_HOST_MODULES_CALL_H_

#include <exception>
#include <type_traits>

#include "process/log.h"

namespace atschost {

// Runs the body of a middleware function, which returns whether it succeeded. Logs exceptions,
// which must not leave these C functions.
template <typename Body>
int runBody(const char* function, Body& body) noexcept {
  try {
    return body() ? 0 : -1;
  } catch (const std::exception& e) {
    log().Error("%s: %s", function, e.what());
    return -1;
  }
}

// Runs the body of a function that is called in bulk. Logs the call at Trace.
template <typename Body>
int statusOf(const char* function, Body body) noexcept {
  const int status = runBody(function, body);
  log().Trace("%s -> %d", function, status);
  return status;
}

// Returns an argument for the log: a number, or the number at a pointer if the call has succeeded.
template <typename Argument>
long long shown(Argument argument, bool succeeded) noexcept {
  if constexpr (std::is_pointer_v<Argument>)
    return succeeded && argument ? static_cast<long long>(*argument) : 0;
  else
    return static_cast<long long>(argument);
}

// Returns a member of a caller's record; 0 without a record.
template <typename Record, typename Number>
Number memberOf(const Record* record, Number Record::*member) noexcept {
  return record ? record->*member : Number{};
}

// Logs a call at Debug, as "AIFW_play_src(0, 3) -> 0". Costs almost nothing when Debug is off.
template <typename... Arguments>
void logCall(const char* function, int result, Arguments... arguments) noexcept {
  constexpr const char* kFormats[] = {
      "%s() -> %d",
      "%s(%lld) -> %d",
      "%s(%lld, %lld) -> %d",
      "%s(%lld, %lld, %lld) -> %d",
      "%s(%lld, %lld, %lld, %lld) -> %d",
      "%s(%lld, %lld, %lld, %lld, %lld) -> %d",
      "%s(%lld, %lld, %lld, %lld, %lld, %lld) -> %d",
  };
  log().Debug(kFormats[sizeof...(arguments)], function, shown(arguments, result == 0)..., result);
}

// Like statusOf(), but logs at Debug. The arguments are numbers or pointers to numbers.
template <typename Body, typename... Arguments>
int loggedStatusOf(const char* function, Body body, const Arguments&... arguments) noexcept {
  const int status = runBody(function, body);
  logCall(function, status, arguments...);
  return status;
}

}  // namespace atschost

#endif  // ATSC_HOST_MODULES_CALL_H_
