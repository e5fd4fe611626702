// Times on a command line.
#ifndef ATSC_APPS_COMMON_UTC_TIME_H_
#define ATSC_APPS_COMMON_UTC_TIME_H_

#include <cstdint>
#include <string>

namespace apps {

// For the help of a program's option that takes such a time.
inline constexpr const char* kUtcTimeForm = "like 2014-01-09T19:30:00Z or 2014-01-09T14:30-05:00";

// Unix seconds of a time in the form above: in UTC or with its offset from UTC, seconds may be
// missing. Throws std::invalid_argument when `text` is none, or is before 1970-01-01 or after
// 2106-02-07, where 32 bits end.
uint32_t parseUtcTime(const std::string& text);

// Checks a command-line option: the reason why `text` is no such time, empty when it is one.
std::string utcTimeFault(const std::string& text);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_UTC_TIME_H_
