#include "service/receiver_clock.h"

#include <cstdio>
#include <cstdlib>

#include "terminal/local_time.h"
#include "terminal/text.h"

namespace apps::tv {

ReceiverClock readClock(const Client& client) {
  const Json::Value setting = client.ask(command("TIME", "GETSETTING"));
  return receiverClock(setting, client.ask(command("TIME", "GETCUR")));
}

std::string receiverTime(const ReceiverClock& clock, int64_t seconds, const char* format) {
  constexpr int64_t kMinute = 60;  // seconds
  return utcTime(seconds + clock.offset * kMinute, format);
}

std::string dateWords(const ReceiverClock& clock) {
  return receiverTime(clock, clock.utc, "%a %d %b %Y %H:%M:%S");
}

std::string settingWords(const ReceiverClock& clock) {
  char text[64];
  const long long minutes = std::llabs(clock.offset);
  snprintf(text, sizeof text, "UTC%c%lld:%02lld", clock.offset < 0 ? '-' : '+', minutes / 60,
           minutes % 60);
  return oneLine(clock.zone) + " (" + text + "), " +
         (clock.automatic ? "follows the broadcast" : "runs on by itself");
}

}  // namespace apps::tv
