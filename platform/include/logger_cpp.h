// LoggerCpp: the set's logger.
#ifndef ATSC_PLATFORM_LOGGER_CPP_H_
#define ATSC_PLATFORM_LOGGER_CPP_H_

#include <memory>

// Logs printf-style at five levels. Any thread may call, also before main() and during static
// destruction. Lines below the active level are not formatted. Must not throw.
class LoggerCpp {
 public:
  // `name` has no meaning; `category` names the source of the lines.
  LoggerCpp(const char* name, const char* category);
  ~LoggerCpp();

  LoggerCpp(const LoggerCpp&) = delete;
  LoggerCpp& operator=(const LoggerCpp&) = delete;

  void Trace(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Debug(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Info(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Warn(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void Error(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

#endif  // ATSC_PLATFORM_LOGGER_CPP_H_
