// Times for people, in the time zone of the terminal.
#ifndef ATSC_TV_TERMINAL_LOCAL_TIME_H_
#define ATSC_TV_TERMINAL_LOCAL_TIME_H_

#include <cstdint>
#include <string>

namespace tv {

// Unix seconds as strftime() writes them, in local time or in UTC; "?" where the calendar ends.
std::string localTime(int64_t seconds, const char* format);
std::string utcTime(int64_t seconds, const char* format);

// "2014-01-09T14:30:00-05:00" (ISO 8601).
std::string isoLocalTime(int64_t seconds);

inline constexpr int64_t kHalfHour = 1800;  // seconds

// The start of the half hour, by the local clock, that a time lies in.
int64_t halfHourStart(int64_t seconds);

}  // namespace tv

#endif  // ATSC_TV_TERMINAL_LOCAL_TIME_H_
