// LoggerCpp: the set's logger.
#ifndef ATSC_PLATFORM_LOGGER_CPP_H_
#define ATSC_PLATFORM_LOGGER_CPP_H_

#include <memory>

// printf-style logging at five levels. Every call may come from any thread, also before main() and
// during static destruction. A line below the active level costs no formatting. Must not throw.
class LoggerCpp {
 public:
  // `name` is not interpreted; `category` names the source of the lines.
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
