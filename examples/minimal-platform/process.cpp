#include "process.h"

#include <pthread.h>
#include <signal.h>

#include <cstdlib>
#include <exception>
#include <utility>

#include "set.h"

namespace minimal {

namespace {

// The exit handler, which may run several times. Stops the BUS last: while its name is taken, no
// second service process can write the databases.
void shutDown() {
  workers().scans.end();
  workers().timers.end();
  workers().events.end();
  endServers();
}

}  // namespace

// Registers the handler at each call. An earlier registration runs too late for objects constructed
// since then.
bool endAtExit() { return std::atexit(shutDown) == 0; }

bool Worker::post(std::function<void()> job, std::chrono::milliseconds delay, uint32_t key) {
  const MutexLock lock(mutex_);
  if (ended_ || !start()) return false;
  for (auto other = jobs_.begin(); key != 0 && other != jobs_.end();) {
    other = other->second.key == key ? jobs_.erase(other) : std::next(other);
  }
  jobs_.emplace(std::chrono::steady_clock::now() + delay, Job{std::move(job), key});
  changed_.notify_one();
  return true;
}

void Worker::end() {
  {
    const MutexLock lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

bool Worker::start() {
  if (thread_.joinable()) return true;
  if (!endAtExit()) return false;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // the new thread inherits the mask
  try {
    thread_ = std::thread([this] {
      while (const auto job = next()) job();
    });
  } catch (const std::exception& e) {
    log().Error("no thread: %s", e.what());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread_.joinable();
}

std::function<void()> Worker::next() {
  const MutexLock lock(mutex_);
  while (!ended_) {
    if (jobs_.empty()) {
      changed_.wait(mutex_);
    } else if (const auto time = jobs_.begin()->first; time > std::chrono::steady_clock::now()) {
      changed_.wait_until(mutex_, time);
    } else {
      auto job = std::move(jobs_.begin()->second.run);
      jobs_.erase(jobs_.begin());
      return job;
    }
  }
  return nullptr;
}

}  // namespace minimal
