// Local time in the zones of the set.
#ifndef ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_
#define ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_

#include <cstdint>
#include <optional>

#include "aist.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Returns whether `zone` is one of AIST_ZONE_*.
bool isZone(int32_t zone);

// Returns the offset of local time to UTC at a time in Unix seconds, in minutes, positive in the
// east. Daylight saving follows the system time table; without a table it is never in force. The
// offset of an unknown zone is 0.
int32_t utcOffset(int32_t zone, const std::optional<SystemTime>& table, uint32_t unixSeconds);

// Returns date and time of day `offset` minutes east of UTC. Valid for every 32-bit time.
AIST_time_date dateAt(uint32_t unixSeconds, int32_t offset);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_LOCAL_TIME_H_
