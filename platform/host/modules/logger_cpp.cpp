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

// SPDLOG_LEVEL, read at the first use; Info where it is not set or not a level.
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

// The one sink of the process. Every logger holds it; spdlog's registry, which is destroyed at
// exit, is not used. Never destroyed, because a logger may be constructed during exit.
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
        logger.log(level, spdlog::string_view_t(format));  // better than nothing
      } else if (static_cast<size_t>(length) < sizeof line) {
        logger.log(level, spdlog::string_view_t(line, static_cast<size_t>(length)));
      } else {
        std::string text(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        logger.log(level, spdlog::string_view_t(text.data(), static_cast<size_t>(length)));
      }
    } catch (const std::exception&) {
      // There is nowhere to report that the log does not work.
    }
    va_end(again);
  }

  spdlog::logger logger;
  Impl* nextReleased = nullptr;

  // Loggers that have been destroyed. They are kept: at exit a thread that could not be awaited may
  // be in the middle of a line.
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
