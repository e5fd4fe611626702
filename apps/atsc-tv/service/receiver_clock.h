// The clock of the receiver, formatted for users.
#ifndef ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
#define ATSC_TV_SERVICE_RECEIVER_CLOCK_H_

#include <cstdint>
#include <string>

#include "common/receiver_clock.h"
#include "service/client.h"

namespace apps::tv {

ReceiverClock readClock(const Client& client);

// Formats Unix seconds with strftime(), in the receiver's local time.
std::string receiverTime(const ReceiverClock& clock, int64_t seconds, const char* format);

// Returns the time as "Sat 22 Nov 2025 14:31:05".
std::string dateWords(const ReceiverClock& clock);

// Returns the setting as "EST (UTC-5:00), follows the broadcast".
std::string settingWords(const ReceiverClock& clock);

}  // namespace apps::tv

#endif  // ATSC_TV_SERVICE_RECEIVER_CLOCK_H_
