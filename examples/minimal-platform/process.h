// What lives as long as the process: objects that are never destroyed, the platform's threads, and
// the order in which these end at exit.
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

// Returns the only object of type T, which the first call constructs. It is never destroyed: two
// threads of the library call the platform until the process is gone.
template <typename T>
T& immortal() {
  static T& object = *new T;
  return object;
}

// Has all threads end at exit, before the objects that exist now are destroyed. Returns false when
// out of memory.
bool endAtExit();

// A thread that runs jobs one at a time, each at its time, equal times in the order of post(). It
// starts with the first job, blocks all signals, which the program handles on its own threads, and
// is joined. All functions may be called from any thread.
class Worker {
 public:
  ~Worker() { end(); }

  // Runs `job` after `delay`. Replaces the job of the same `key` that has not begun, unless the key
  // is 0. Returns false when the worker has ended or its thread cannot be created.
  bool post(std::function<void()> job, std::chrono::milliseconds delay = {}, uint32_t key = 0)
      EXCLUDES(mutex_);

  // Waits for the running job; no other job begins. Does not wait in a job, which may call exit().
  void end() EXCLUDES(mutex_);

 private:
  struct Job {
    std::function<void()> run;
    uint32_t key;
  };

  bool start() REQUIRES(mutex_);

  // Waits for the next job. Returns null when the worker has ended.
  std::function<void()> next() EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::multimap<std::chrono::steady_clock::time_point, Job> jobs_ GUARDED_BY(mutex_);
  bool ended_ GUARDED_BY(mutex_) = false;
  std::thread thread_;  // starts before ended_ is set, is joined afterwards
};

// The threads that call the library. They end in this order.
struct Workers {
  Worker scans;
  Worker timers;
  Worker events;
};

inline Workers& workers() { return immortal<Workers>(); }

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_PROCESS_H_
