// Process lifetime: objects that are never destroyed, the platform's threads, and the order in
// which the threads stop at exit.
#ifndef MINIMAL_PLATFORM_PROCESS_H_
#define MINIMAL_PLATFORM_PROCESS_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <thread>

#include "mutex.h"

namespace minimal {

// Returns the only object of type T, which the first call constructs. The object is never
// destroyed, as threads of the library call the platform until the process has ended.
template <typename T>
T& immortal() {
  static T& object = *new T;
  return object;
}

// Registers an exit handler that stops all threads before the objects that exist now are destroyed.
// Returns false if out of memory.
bool endAtExit();

// A thread that runs jobs one at a time, ordered by time, then by post(). The thread starts with
// the first job and blocks all signals, as they are for threads of the program. Any thread may
// call.
class Worker {
 public:
  // Detaches the thread if a job destroys the worker, as by exit().
  ~Worker() {
    end();
    if (thread_.joinable()) thread_.detach();
  }

  // Runs `job`, which must not throw, after `delay`. Replaces a waiting job of the same `key`,
  // unless the key is 0. Returns false if the worker was ended or its thread cannot be created.
  bool post(std::function<void()> job, std::chrono::milliseconds delay = {}, uint32_t key = 0)
      EXCLUDES(mutex_);

  // Drops the waiting jobs and joins the thread. Does not join if a job calls it, as by exit().
  void end() EXCLUDES(mutex_);

 private:
  struct Job {
    std::function<void()> run;
    uint32_t key;
  };

  bool start() REQUIRES(mutex_);

  // Waits for the next job and returns it, or null if the worker was ended.
  std::function<void()> next() EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::multimap<std::chrono::steady_clock::time_point, Job> jobs_ GUARDED_BY(mutex_);
  bool ended_ GUARDED_BY(mutex_) = false;
  std::thread thread_;  // started before ended_ is set, joined afterwards
};

// The threads that call the library, in the order in which they stop.
struct Workers {
  Worker scans;
  Worker timers;
  Worker events;
};

inline Workers& workers() { return immortal<Workers>(); }

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_PROCESS_H_
