// The library's log lines. Each line begins with module tag, process id, function, file and line.
#ifndef ATSC_ATSC_LOG_H_
#define ATSC_ATSC_LOG_H_

#include <logger_cpp.h>
#include <unistd.h>

#include "atsc_immortal.h"

namespace atsc {

// Returns the text after the last '/'.
constexpr const char* fileName(const char* path) {
  const char* name = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/') name = p + 1;
  }
  return name;
}

// Returns the process id. Cached, because log arguments are evaluated for suppressed lines too.
int processId();

// Origin of a log line. A helper function receives the origin of its caller, so that its lines
// carry the caller's name.
struct LogPlace {
  const char* tag;
  const char* function;
  const char* file;
  int line;
  const char* signature;  // full signature of the function
};

// Logs a status other than 0 as a failed call of `function`. Returns the status.
int checkStatus(LoggerCpp& logger, const LogPlace& place, const char* function, int status);

}  // namespace atsc

// Defines the logger and the module tag of a source file. Loggers are constructed before all other
// globals, because constructors of globals log, and are never destroyed, because threads log until
// the process has ended.
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

// Logs a line with another origin.
#define ATSC_LOG_AT(place, level, format, ...)                                         \
  g_logger->level("%-9s: [%d][%s()][%s:%d] " format, (place).tag, ::atsc::processId(), \
                  (place).function, (place).file, (place).line, ##__VA_ARGS__)

// Calls a middleware function and returns its status. Logs a status other than 0.
#define ATSC_CALL(function, ...) ATSC_CALL_AT(ATSC_HERE(), function, ##__VA_ARGS__)
#define ATSC_CALL_AT(place, function, ...) \
  ::atsc::checkStatus(*g_logger, place, #function, function(__VA_ARGS__))

// Origin of a log line at this place.
#define ATSC_HERE()                                                                 \
  ::atsc::LogPlace {                                                                \
    kModuleTag, __func__, ::atsc::fileName(__FILE__), __LINE__, __PRETTY_FUNCTION__ \
  }

// Logs the reason of a failure, with the full signature of the function at the end.
#define ATSC_FAILED(format, ...) ATSC_LOG(Error, format ": %s", ##__VA_ARGS__, __PRETTY_FUNCTION__)

#endif  // ATSC_ATSC_LOG_H_
