#ifndef MINIMAL_PLATFORM_WORKER_H_
#define MINIMAL_PLATFORM_WORKER_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace minimal {

// A thread that does jobs one at a time, each when its time has come, equal times in their order.
// Begins with the first job. Any thread may call.
class Worker {
 public:
  // Does `job` after `delay`, on the worker's thread. False when the process is ending.
  bool post(std::function<void()> job, std::chrono::milliseconds delay = {}, uint32_t key = 0);

  // Forgets the jobs of a key that have not begun.
  void cancel(uint32_t key);

  // Waits for the job that runs; no other one begins.
  void end();

 private:
  struct Job {
    std::function<void()> run;
    uint32_t key;
  };

  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<std::chrono::steady_clock::time_point, Job> jobs_;
  std::thread thread_;
  bool ended_ = false;
};

// A worker for the whole process. It ends before what was built earlier, such as the library's
// globals, is destroyed, but may be asked also afterwards: the object itself stays.
template <typename Tag>
Worker& processWorker() {
  static Worker* const worker = new Worker;
  static const struct End {
    ~End() { worker->end(); }
  } end;
  return *worker;
}

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_WORKER_H_
