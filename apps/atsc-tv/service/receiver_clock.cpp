#include "service/receiver_clock.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>

#include "service/json.h"
#include "terminal/local_time.h"
#include "terminal/text.h"

namespace tv {
namespace {

constexpr int64_t kMinute = 60;  // seconds

}  // namespace

std::string ReceiverClock::local(int64_t seconds, const char* format) const {
  return utcTime(seconds + offset * kMinute, format);
}

std::string ReceiverClock::date() const { return local(utc, "%a %d %b %Y %H:%M:%S"); }

std::string ReceiverClock::setting() const {
  char text[64];
  const long long minutes = std::llabs(offset);
  snprintf(text, sizeof text, "UTC%c%lld:%02lld", offset < 0 ? '-' : '+', minutes / 60,
           minutes % 60);
  return oneLine(zone) + " (" + text + "), " +
         (automatic ? "follows the broadcast" : "runs on by itself");
}

ReceiverClock readClock(const Client& client) {
  const Json::Value setting = client.ask(command("TIME", "GETSETTING"));
  const Json::Value now = client.ask(command("TIME", "GETCUR"));
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

}  // namespace tv
