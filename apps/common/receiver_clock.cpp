#include "common/receiver_clock.h"

#include <time.h>

#include "common/json.h"

namespace apps {

ReceiverClock receiverClock(const Json::Value& setting, const Json::Value& now) {
  constexpr int64_t kMinute = 60;  // seconds
  const auto part = [&](const char* key) { return static_cast<int>(integer(now, key)); };
  tm parts = {};
  parts.tm_year = part("year") - 1900;
  parts.tm_mon = part("month") - 1;
  parts.tm_mday = part("mday");
  parts.tm_hour = part("hour");
  parts.tm_min = part("min");
  parts.tm_sec = part("sec");
  const int64_t offset = integer(setting, "offset");
  return {int64_t{timegm(&parts)} - offset * kMinute,
          setting["time_zone"].isString() ? setting["time_zone"].asString() : "", offset,
          setting["mode"] == "AUTO"};
}

}  // namespace apps
