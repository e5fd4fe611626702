// The end of the process.
#ifndef ATSC_HOST_PROCESS_SHUTDOWN_H_
#define ATSC_HOST_PROCESS_SHUTDOWN_H_

namespace atschost {

// What ends when the process exits, in this order: timers, whose handlers use the middleware, then
// the middleware's threads, whose callbacks go over the BUS, then the BUS.
enum class ShutDownStage { kTimers, kReceiver, kBus };

// Has `end` called at exit, once and on the thread that exits, before any object is destroyed that
// exists now. A later call for the same stage takes the place of the earlier one. In a forked
// child, which has none of the threads, only what the child registered itself is called.
void atShutDown(ShutDownStage stage, void (*end)());

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_SHUTDOWN_H_
