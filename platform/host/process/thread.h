// A thread that can be asked to end.
#ifndef ATSC_HOST_PROCESS_THREAD_H_
#define ATSC_HOST_PROCESS_THREAD_H_

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <thread>

namespace atschost {

// A thread that blocks all signals, which are left to the program's own threads. Logs exceptions
// that the body throws. The owner serialises calls of start(), join() and hasEnded(); other
// functions may be called on any thread.
class Thread {
 public:
  Thread() = default;
  // Asks the thread to end and joins it. A thread that destroys its own Thread is detached.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Starts the thread with a name of at most 15 characters. Has no effect if the thread was started
  // or asked to end before. Throws std::system_error if the system cannot create a thread.
  void start(const char* name, std::function<void()> body);

  // Makes isEnding() true permanently. The caller wakes the body if it waits.
  void askToEnd() { ending_ = true; }
  const std::atomic<bool>& isEnding() const { return ending_; }

  // Waits until the body has returned, at most for `patience` if given. When that time is over, or
  // on the thread itself, detaches the thread and returns false.
  bool join(std::optional<std::chrono::milliseconds> patience = std::nullopt);

  // Returns whether the thread was started and its body has returned.
  bool hasEnded() const;
  bool isCurrent() const { return thread_.get_id() == std::this_thread::get_id(); }

 private:
  std::atomic<bool> ending_{false};
  std::future<void> end_;
  std::thread thread_;
};

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_THREAD_H_
