// LoggerCpp: writes lines to standard error. The environment variable MINIMAL_LOG is the lowest
// level that is logged: 0 trace, 1 debug, 2 info, 3 warn (the default), 4 error, 5 nothing.
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "logger_cpp.h"
#include "process.h"
#include "set.h"

struct LoggerCpp::Impl {
  std::string category;
};

namespace {

constexpr const char* kLevels[] = {"trace", "debug", "info", "warn", "error"};

int lowestLevel() {
  static const int level = [] {
    const char* const text = getenv("MINIMAL_LOG");
    return text != nullptr ? atoi(text) : 3;
  }();
  return level;
}

// Formats into a buffer on the stack and uses no other object, as the library logs before and after
// main().
void write(int level, const char* category, const char* format, va_list arguments) {
  char line[1024];
  const size_t head = std::min<size_t>(
      sizeof line / 2, snprintf(line, sizeof line, "[%s] [%s] ", kLevels[level], category));
  const int text = vsnprintf(line + head, sizeof line - head - 1, format, arguments);
  if (text < 0) return;
  size_t end = std::min(head + text, sizeof line - 2);
  line[end++] = '\n';
  if (::write(STDERR_FILENO, line, end) < 0) return;
}

}  // namespace

#define MINIMAL_LOG_AT(level)                               \
  if ((level) < lowestLevel()) return;                      \
  va_list arguments;                                        \
  va_start(arguments, format);                              \
  write(level, impl_->category.c_str(), format, arguments); \
  va_end(arguments)

LoggerCpp::LoggerCpp(const char* /*name*/, const char* category)
    : impl_(new Impl{category != nullptr ? category : ""}) {}
LoggerCpp::~LoggerCpp() = default;
void LoggerCpp::Trace(const char* format, ...) { MINIMAL_LOG_AT(0); }
void LoggerCpp::Debug(const char* format, ...) { MINIMAL_LOG_AT(1); }
void LoggerCpp::Info(const char* format, ...) { MINIMAL_LOG_AT(2); }
void LoggerCpp::Warn(const char* format, ...) { MINIMAL_LOG_AT(3); }
void LoggerCpp::Error(const char* format, ...) { MINIMAL_LOG_AT(4); }

LoggerCpp& minimal::log() {
  struct Logger : LoggerCpp {
    Logger() : LoggerCpp("minimal", "platform") {}
  };
  return immortal<Logger>();
}
