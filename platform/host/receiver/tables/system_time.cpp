#include "receiver/tables/system_time.h"

namespace atschost {
namespace {

constexpr uint32_t kGpsEpoch = 315964800;  // 1980-01-06 00:00:00 UTC, Unix seconds

}  // namespace

uint32_t SystemTime::unixSeconds() const { return gpsSeconds - gpsUtcOffset + kGpsEpoch; }

}  // namespace atschost
