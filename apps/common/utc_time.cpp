#include "utc_time.h"

#include <time.h>

#include <limits>
#include <stdexcept>

namespace apps {

uint32_t parseUtcTime(const std::string& text) {
  constexpr const char* kForm = "%Y-%m-%dT%H:%M:%SZ";
  tm parts = {};
  const char* end = strptime(text.c_str(), kForm, &parts);
  if (end != nullptr && *end == '\0') {
    const int64_t seconds = timegm(&parts);
    // Written back it differs where a day does not exist, such as 30 February.
    char again[32];
    if (seconds >= 0 && seconds <= std::numeric_limits<uint32_t>::max() &&
        strftime(again, sizeof again, kForm, &parts) > 0 && text == again) {
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
