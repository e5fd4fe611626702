#include "terminal/local_time.h"

#include <time.h>

namespace apps::tv {
namespace {

std::string written(const tm* parts, const char* format) {
  char text[64];
  const size_t length = parts != nullptr ? strftime(text, sizeof text, format, parts) : 0;
  return length > 0 ? std::string(text, length) : "?";
}

}  // namespace

std::string localTime(int64_t seconds, const char* format) {
  const time_t time = seconds;
  tm parts = {};
  return written(localtime_r(&time, &parts), format);
}

std::string utcTime(int64_t seconds, const char* format) {
  const time_t time = seconds;
  tm parts = {};
  return written(gmtime_r(&time, &parts), format);
}

std::string isoLocalTime(int64_t seconds) {
  std::string text = localTime(seconds, "%Y-%m-%dT%H:%M:%S%z");
  if (text.size() > 2) text.insert(text.size() - 2, 1, ':');  // strftime() writes no colon
  return text;
}

int64_t halfHourStart(int64_t seconds) {
  const time_t time = seconds;
  tm parts = {};
  if (localtime_r(&time, &parts) == nullptr) return seconds;
  return seconds - (parts.tm_min % 30 * 60 + parts.tm_sec);
}

}  // namespace apps::tv
