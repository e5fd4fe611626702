// Formats times in the time zone of the terminal.
#ifndef ATSC_TV_TERMINAL_LOCAL_TIME_H_
#define ATSC_TV_TERMINAL_LOCAL_TIME_H_

#include <cstdint>
#include <string>

namespace apps::tv {

// Formats Unix seconds with strftime(), in local time or in UTC. Returns "?" for a time that the
// calendar functions cannot represent.
std::string localTime(int64_t seconds, const char* format);
std::string utcTime(int64_t seconds, const char* format);

// Formats Unix seconds in local time as ISO 8601: "2014-01-09T14:30:00-05:00".
std::string isoLocalTime(int64_t seconds);

inline constexpr int64_t kHalfHour = 1800;  // seconds

// Returns the start of the half hour of the local clock that contains `seconds`.
int64_t halfHourStart(int64_t seconds);

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_LOCAL_TIME_H_
