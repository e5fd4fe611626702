// What the middleware's functions of this process share.
#ifndef ATSC_HOST_MODULES_HOST_H_
#define ATSC_HOST_MODULES_HOST_H_

#include "receiver/receiver.h"

namespace atschost {

// All three are made at the first call and never destroyed. A process that never calls
// hostReceiver() has no thread of it and touches no file; at exit its threads end.
Air& hostAir();
Clock& hostClock();
Receiver& hostReceiver();

}  // namespace atschost

#endif  // ATSC_HOST_MODULES_HOST_H_
