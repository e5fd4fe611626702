// Parses times on a command line.
#ifndef ATSC_APPS_COMMON_UTC_TIME_H_
#define ATSC_APPS_COMMON_UTC_TIME_H_

#include <cstdint>
#include <string>

namespace apps {

// Describes the form of such a time in the help of an option.
inline constexpr const char* kUtcTimeForm = "like 2014-01-09T19:30:00Z or 2014-01-09T14:30-05:00";

// Parses a time in the form above, in UTC or with its offset from UTC; the seconds may be missing.
// Returns Unix seconds. Throws std::invalid_argument if `text` is not a time or is outside the
// range of 32 bits, 1970-01-01 to 2106-02-07.
uint32_t parseUtcTime(const std::string& text);

// Checks a command-line option. Returns the error message for a text that is not such a time, else
// an empty text.
std::string utcTimeFault(const std::string& text);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_UTC_TIME_H_
