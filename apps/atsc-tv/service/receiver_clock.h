// The receiver's clock, as the service tells it.
#ifndef ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
#define ATSC_TV_SERVICE_RECEIVER_CLOCK_H_

#include <cstdint>
#include <string>

#include "service/client.h"

namespace tv {

struct ReceiverClock {
  int64_t utc;  // Unix seconds
  std::string zone;
  int64_t offset;  // of local time to UTC, east positive, daylight saving included; minutes
  bool automatic;  // follows the broadcast

  // Unix seconds as strftime() writes them, in the receiver's local time.
  std::string local(int64_t seconds, const char* format) const;

  // "Sat 22 Nov 2025 14:31:05".
  std::string date() const;

  // "EST (UTC-5:00), follows the broadcast".
  std::string setting() const;
};

ReceiverClock readClock(const Client& client);

}  // namespace tv

#endif  // ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
