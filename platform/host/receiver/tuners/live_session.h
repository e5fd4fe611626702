// Receives the carrier of one tuning.
#ifndef ATSC_HOST_RECEIVER_TUNERS_LIVE_SESSION_H_
#define ATSC_HOST_RECEIVER_TUNERS_LIVE_SESSION_H_

#include "receiver/tuners/tuning.h"

namespace atschost {

// Waits for the file of the carrier and receives each of its contents. Returns when the carrier is
// left.
void receiveCarrier(Tuning& tuning);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_LIVE_SESSION_H_
