// The clock of the receiver, which the service reports.
#ifndef ATSC_APPS_COMMON_RECEIVER_CLOCK_H_
#define ATSC_APPS_COMMON_RECEIVER_CLOCK_H_

#include <json/value.h>

#include <cstdint>
#include <string>

namespace apps {

struct ReceiverClock {
  int64_t utc;  // Unix seconds
  std::string zone;
  int64_t offset;  // minutes from UTC to local time, east positive, including daylight saving
  bool automatic;  // follows the broadcast
};

// Reads the replies to TIME GETSETTING and TIME GETCUR.
ReceiverClock receiverClock(const Json::Value& setting, const Json::Value& now);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_RECEIVER_CLOCK_H_
