// Receives callbacks from the service and signals from the user, in the order of their arrival.
#ifndef ATSC_TV_CALLBACKS_CALLBACKS_H_
#define ATSC_TV_CALLBACKS_CALLBACKS_H_

#include <atsc/atsc_tv_server_backend.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>

namespace apps::tv {

// The TV application's backend. The BUS server thread only queues messages, so that the service
// never waits for a terminal; the main thread reads the queue.
class Callbacks final : public ATSCBUS::ATSCTVServerBackend {
 public:
  // Registers this process as the TV application and handles SIGINT and SIGTERM; a second signal
  // ends the process. Throws Failure(kOtherTV) if another TV application is registered. Called
  // once, on the main thread. The object lives until the process ends.
  static Callbacks& start();

  enum class Event { kMessage, kInterrupt, kTimeout };

  // No callback tells of the service's end: who waits for long looks for the service so often.
  static constexpr std::chrono::seconds kCheckService{1};

  // Waits for the next message, a signal or the timeout; with a process until its end, which counts
  // as the timeout, instead. Called on the main thread.
  Event wait(std::chrono::milliseconds timeout, std::string* message, pid_t process = 0);

  // Queues a message. Called on the BUS server thread. Returns -1 if the queue is full.
  int jsonCommand(const char* command, char** result) override;

 private:
  Callbacks();
  static void interrupt(int);
  void wake();

  static Callbacks* instance_;

  std::atomic<bool> interrupted_{false};
  std::mutex mutex_;
  std::deque<std::string> messages_;
  const int arrivals_;  // eventfd: a signal handler may write to it
};

}  // namespace apps::tv

#endif  // ATSC_TV_CALLBACKS_CALLBACKS_H_
