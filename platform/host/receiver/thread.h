// The receiver's threads.
#ifndef ATSC_HOST_RECEIVER_THREAD_H_
#define ATSC_HOST_RECEIVER_THREAD_H_

#include <functional>
#include <thread>

namespace atschost {

// Starts a thread of that name (at most 15 characters). All signals are blocked in it: they are for
// the program's own threads. What `body` throws ends the thread and is logged.
std::thread startThread(const char* name, std::function<void()> body);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_THREAD_H_
