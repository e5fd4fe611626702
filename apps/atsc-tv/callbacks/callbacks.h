// Callbacks from the service and signals from the user, in the order of their arrival.
#ifndef ATSC_TV_CALLBACKS_CALLBACKS_H_
#define ATSC_TV_CALLBACKS_CALLBACKS_H_

#include <atsc/atsc_tv_server_backend.h>
#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>

namespace tv {

// The TV application's backend. The BUS server thread only leaves its messages here, so that the
// service never waits for a terminal; the main thread takes them out.
class Callbacks final : public ATSCBUS::ATSCTVServerBackend {
 public:
  // Registers this process as the TV application and takes over SIGINT and SIGTERM; a second signal
  // ends the process. Throws Failure(kOtherTV) when another one is registered. Once, on the main
  // thread; the object lives until the process has ended.
  static Callbacks& start();

  enum class Event { kMessage, kInterrupt, kTimeout };

  // Waits for the next message, a signal, or until the time is over. Main thread.
  Event wait(std::chrono::milliseconds timeout, std::string* message);

  // On the BUS server thread. -1 when too many messages wait.
  int jsonCommand(const char* command, char** result) override;

 private:
  Callbacks();
  static void interrupt(int);

  static Callbacks* instance_;

  std::atomic<bool> interrupted_{false};
  std::mutex mutex_;
  std::deque<std::string> messages_;
  sem_t arrivals_;  // posted by a signal handler too, which a condition variable does not allow
};

}  // namespace tv

#endif  // ATSC_TV_CALLBACKS_CALLBACKS_H_
