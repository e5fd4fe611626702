#include "common/utc_time.h"

#include <time.h>

#include <cstring>
#include <limits>
#include <stdexcept>

namespace apps {

uint32_t parseUtcTime(const std::string& text) {
  for (const char* form : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M"}) {
    tm parts = {};
    tm zone = {};
    const char* const zoneText = strptime(text.c_str(), form, &parts);
    if (zoneText == nullptr || strchr("Z+-", *zoneText) == nullptr) continue;
    const char* const end = strptime(zoneText, "%z", &zone);
    if (end == nullptr || *end != '\0') continue;
    const int64_t seconds = int64_t{timegm(&parts)} - zone.tm_gmtoff;
    // Formatting the result again reveals days that do not exist, such as 30 February.
    char again[32];
    if (seconds >= 0 && seconds <= std::numeric_limits<uint32_t>::max() &&
        strftime(again, sizeof again, form, &parts) > 0 &&
        text.compare(0, static_cast<size_t>(zoneText - text.c_str()), again) == 0) {
      return static_cast<uint32_t>(seconds);
    }
  }
  throw std::invalid_argument("'" + text + "' is no time: " + kUtcTimeForm);
}

std::string utcTimeFault(const std::string& text) {
  try {
    parseUtcTime(text);
    return "";
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

}  // namespace apps
