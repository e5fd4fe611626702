// Objects that the middleware's functions of this process share.
#ifndef ATSC_HOST_MODULES_HOST_H_
#define ATSC_HOST_MODULES_HOST_H_

#include "receiver/receiver.h"

namespace atschost {

// Each object is created on the first call and never destroyed. A process that never calls
// hostReceiver() has none of its threads and touches no file. At exit its threads end.
Air& hostAir();
Clock& hostClock();
Receiver& hostReceiver();

}  // namespace atschost

#endif  // ATSC_HOST_MODULES_HOST_H_
