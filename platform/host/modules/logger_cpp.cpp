// LoggerCpp on spdlog: lines to stderr, level from SPDLOG_LEVEL.

#include "logger_cpp.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <strings.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "process/immortal.h"

namespace {

using spdlog::level::level_enum;

// Returns the level of SPDLOG_LEVEL, read at first use. Info if the variable is not set or is not a
// level.
level_enum activeLevel() {
  static const level_enum level = [] {
    constexpr struct {
      const char* name;
      level_enum level;
    } kLevels[] = {
        {"trace", level_enum::trace},  {"debug", level_enum::debug},
        {"info", level_enum::info},    {"warn", level_enum::warn},
        {"warning", level_enum::warn}, {"error", level_enum::err},
        {"err", level_enum::err},      {"critical", level_enum::critical},
        {"off", level_enum::off},
    };
    const char* const value = std::getenv("SPDLOG_LEVEL");
    for (const auto& each : kLevels) {
      if (value != nullptr && ::strcasecmp(value, each.name) == 0) return each.level;
    }
    return level_enum::info;
  }();
  return level;
}

// The sink of the process, which all loggers share. spdlog's registry is not used, because it is
// destroyed at exit. The sink is never destroyed, because a logger can be constructed during exit.
const spdlog::sink_ptr& sink() {
  static const spdlog::sink_ptr& sink =
      atschost::immortal<spdlog::sink_ptr>(std::make_shared<spdlog::sinks::stderr_sink_mt>());
  return sink;
}

}  // namespace

struct LoggerCpp::Impl {
  explicit Impl(const char* category) : logger(category, sink()) {
    logger.set_level(activeLevel());
  }

  void write(level_enum level, const char* format, std::va_list arguments) {
    if (!logger.should_log(level)) return;
    char line[512];
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    try {
      if (length < 0) {
        logger.log(level, spdlog::string_view_t(format));  // the format alone
      } else if (static_cast<size_t>(length) < sizeof line) {
        logger.log(level, spdlog::string_view_t(line, static_cast<size_t>(length)));
      } else {
        std::string text(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        logger.log(level, spdlog::string_view_t(text.data(), static_cast<size_t>(length)));
      }
    } catch (const std::exception&) {
      // A failure of the log cannot be reported.
    }
    va_end(again);
  }

  spdlog::logger logger;
  Impl* nextReleased = nullptr;

  // Implementations of destroyed loggers. They are kept, because at exit a thread that was not
  // joined may be writing a line.
  static std::atomic<Impl*> released;
};

std::atomic<LoggerCpp::Impl*> LoggerCpp::Impl::released{nullptr};

LoggerCpp::LoggerCpp(const char* /*name*/, const char* category)
    : impl_(std::make_unique<Impl>(category != nullptr ? category : "")) {}

LoggerCpp::~LoggerCpp() {
  Impl* const impl = impl_.release();
  impl->nextReleased = Impl::released;
  while (!Impl::released.compare_exchange_weak(impl->nextReleased, impl)) {
  }
}

void LoggerCpp::Trace(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (Impl* const impl = impl_.get()) impl->write(level_enum::trace, format, arguments);
  va_end(arguments);
}

void LoggerCpp::Debug(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (Impl* const impl = impl_.get()) impl->write(level_enum::debug, format, arguments);
  va_end(arguments);
}

void LoggerCpp::Info(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (Impl* const impl = impl_.get()) impl->write(level_enum::info, format, arguments);
  va_end(arguments);
}

void LoggerCpp::Warn(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (Impl* const impl = impl_.get()) impl->write(level_enum::warn, format, arguments);
  va_end(arguments);
}

void LoggerCpp::Error(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (Impl* const impl = impl_.get()) impl->write(level_enum::err, format, arguments);
  va_end(arguments);
}
