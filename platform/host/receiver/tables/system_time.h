// The system time table (A/65 6.1).
#ifndef ATSC_HOST_RECEIVER_TABLES_SYSTEM_TIME_H_
#define ATSC_HOST_RECEIVER_TABLES_SYSTEM_TIME_H_

#include <cstdint>

namespace atschost {

struct Section;

struct SystemTime {
  uint32_t gpsSeconds = 0;   // since 1980-01-06 00:00:00 UTC, leap seconds counted
  uint8_t gpsUtcOffset = 0;  // seconds
  bool daylightStatus = false;
  uint8_t daylightDayOfMonth = 0;
  uint8_t daylightHour = 0;

  uint32_t unixSeconds() const;
};

// Reads a system time table with a sound header. Returns null, or the fault for which the table is
// of no use.
const char* readSystemTime(const Section& section, SystemTime& time);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_SYSTEM_TIME_H_
