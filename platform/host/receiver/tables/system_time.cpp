#include "receiver/tables/system_time.h"

#include "receiver/stream/section.h"

namespace atschost {
namespace {

constexpr uint32_t kGpsEpoch = 315964800;  // 1980-01-06 00:00:00 UTC, Unix seconds

}  // namespace

uint32_t SystemTime::unixSeconds() const { return gpsSeconds - gpsUtcOffset + kGpsEpoch; }

const char* readSystemTime(const Section& section, SystemTime& time) {
  ByteReader in = section.body();
  const uint8_t protocol = in.u8();
  time.gpsSeconds = in.u32();
  time.gpsUtcOffset = in.u8();
  const uint8_t daylight = in.u8();
  time.daylightStatus = daylight & 0x80;
  time.daylightDayOfMonth = daylight & 0x1F;
  time.daylightHour = in.u8();
  if (in.passedEnd()) return "STT is too short";
  if (protocol != 0) return "STT of an unknown protocol version";
  return nullptr;
}

}  // namespace atschost
