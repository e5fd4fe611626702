// How the middleware's functions run.
#ifndef ATSC_HOST_MODULES_CALL_H_
#define ATSC_HOST_MODULES_CALL_H_

#include <exception>
#include <type_traits>

#include "process/log.h"

namespace atschost {

// Runs the body of a middleware function, which returns whether it succeeded: nothing may be thrown
// out of these C functions.
template <typename Body>
int runBody(const char* function, Body& body) noexcept {
  try {
    return body() ? 0 : -1;
  } catch (const std::exception& e) {
    log().Error("%s: %s", function, e.what());
    return -1;
  }
}

// The same for reads in bulk, which the log shows at Trace.
template <typename Body>
int statusOf(const char* function, Body body) noexcept {
  const int status = runBody(function, body);
  log().Trace("%s -> %d", function, status);
  return status;
}

// An argument in the log: a number, or the number that a pointer was given by a call that
// succeeded.
template <typename Argument>
long long shown(Argument argument, bool succeeded) noexcept {
  if constexpr (std::is_pointer_v<Argument>)
    return succeeded && argument ? static_cast<long long>(*argument) : 0;
  else
    return static_cast<long long>(argument);
}

// A number of a record that a caller lends; 0 without a record.
template <typename Record, typename Number>
Number memberOf(const Record* record, Number Record::*member) noexcept {
  return record ? record->*member : Number{};
}

// Writes the Debug line of a call, as "AIFW_play_src(0, 3) -> 0"; next to free where Debug is off.
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

// As statusOf(), with a Debug line: the arguments are numbers or pointers to numbers.
template <typename Body, typename... Arguments>
int loggedStatusOf(const char* function, Body body, const Arguments&... arguments) noexcept {
  const int status = runBody(function, body);
  logCall(function, status, arguments...);
  return status;
}

}  // namespace atschost

#endif  // ATSC_HOST_MODULES_CALL_H_
