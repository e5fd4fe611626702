// Shutdown of the process.
#ifndef ATSC_HOST_PROCESS_SHUTDOWN_H_
#define ATSC_HOST_PROCESS_SHUTDOWN_H_

namespace atschost {

// Stages of the shutdown, in this order: timers, whose handlers use the middleware; the threads of
// the middleware, whose callbacks use the BUS; the BUS.
enum class ShutDownStage { kTimers, kReceiver, kBus };

// Registers `end` to be called once at exit, on the thread that exits, before objects that exist
// now are destroyed. A later call for the same stage replaces `end`. A forked child has none of the
// threads, so only functions that the child itself registered are called in it.
void atShutDown(ShutDownStage stage, void (*end)());

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_SHUTDOWN_H_
