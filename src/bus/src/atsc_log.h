// The library's log lines: every one begins with module tag, process id, function, file and line.
#ifndef ATSC_ATSC_LOG_H_
#define ATSC_ATSC_LOG_H_

#include <logger_cpp.h>
#include <unistd.h>

#include "atsc_immortal.h"

namespace atsc {

// The text after the last '/'.
constexpr const char* fileName(const char* path) {
  const char* name = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/') name = p + 1;
  }
  return name;
}

// The process id, remembered: log arguments are evaluated for suppressed lines too.
int processId();

// Where a line of the log comes from. A helper is given that of the function that it works for, so
// that its lines carry that function's name.
struct LogPlace {
  const char* tag;
  const char* function;
  const char* file;
  int line;
  const char* signature;  // the function in full
};

// Logs a status other than 0 as a failed call of `function`. Returns the status.
int checkStatus(LoggerCpp& logger, const LogPlace& place, const char* function, int status);

}  // namespace atsc

// Defines a source file's logger and module tag. Loggers are built before every other global,
// because constructors of other files' globals log, and outlive all, because threads log until the
// process has ended.
#define ATSC_LOGGER(tag)                                                                      \
  namespace {                                                                                 \
  __attribute__((init_priority(101))) atsc::Immortal<LoggerCpp> g_logger("not_sure_how_work", \
                                                                         "atsc");             \
  [[maybe_unused]] constexpr const char* kModuleTag = tag;                                    \
  }

#define ATSC_LOG(level, ...) ATSC_LOG_AS(level, kModuleTag, __VA_ARGS__)
#define ATSC_LOG_AS(level, tag, format, ...)                                             \
  g_logger->level("%-9s: [%d][%s()][%s:%d] " format, tag, ::atsc::processId(), __func__, \
                  ::atsc::fileName(__FILE__), __LINE__, ##__VA_ARGS__)

#define ATSC_ENTER() ATSC_LOG(Trace, "ENTER ")
#define ATSC_LEAVE() ATSC_LOG(Trace, "LEAVE ")

// The same as a line of another place.
#define ATSC_LOG_AT(place, level, format, ...)                                         \
  g_logger->level("%-9s: [%d][%s()][%s:%d] " format, (place).tag, ::atsc::processId(), \
                  (place).function, (place).file, (place).line, ##__VA_ARGS__)

// Calls a middleware function and returns its status; one other than 0 is logged.
#define ATSC_CALL(function, ...) ATSC_CALL_AT(ATSC_HERE(), function, ##__VA_ARGS__)
#define ATSC_CALL_AT(place, function, ...) \
  ::atsc::checkStatus(*g_logger, place, #function, function(__VA_ARGS__))

// The place of a line here.
#define ATSC_HERE()                                                                 \
  ::atsc::LogPlace {                                                                \
    kModuleTag, __func__, ::atsc::fileName(__FILE__), __LINE__, __PRETTY_FUNCTION__ \
  }

// Logs why something failed, with the function in full at the end.
#define ATSC_FAILED(format, ...) ATSC_LOG(Error, format ": %s", ##__VA_ARGS__, __PRETTY_FUNCTION__)

#endif  // ATSC_ATSC_LOG_H_
