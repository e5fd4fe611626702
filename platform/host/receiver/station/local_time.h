// Local time in the zones of the set.
#ifndef ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_
#define ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_

#include <cstdint>
#include <optional>

#include "aist.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Whether it is one of AIST_ZONE_*.
bool isZone(int32_t zone);

// Of local time to UTC, east positive, in minutes, at a time in Unix seconds. Daylight saving is in
// force as the system time table says, never without one. An unknown zone has the offset 0.
int32_t utcOffset(int32_t zone, const std::optional<SystemTime>& table, uint32_t unixSeconds);

// The date and time of day `offset` minutes east of UTC; right for every time of 32 bits.
AIST_time_date dateAt(uint32_t unixSeconds, int32_t offset);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_
