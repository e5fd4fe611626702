// The clock of the receiver, which the service reports.
#ifndef ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
#define ATSC_TV_SERVICE_RECEIVER_CLOCK_H_

#include <cstdint>
#include <string>

#include "service/client.h"

namespace tv {

struct ReceiverClock {
  int64_t utc;  // Unix seconds
  std::string zone;
  int64_t offset;  // minutes from UTC to local time, east positive, including daylight saving
  bool automatic;  // follows the broadcast

  // Formats Unix seconds with strftime(), in the receiver's local time.
  std::string local(int64_t seconds, const char* format) const;

  // Returns the time as "Sat 22 Nov 2025 14:31:05".
  std::string date() const;

  // Returns the setting as "EST (UTC-5:00), follows the broadcast".
  std::string setting() const;
};

ReceiverClock readClock(const Client& client);

}  // namespace tv

#endif  // ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
