// OSAL timers: one thread waits for the earliest of all running timers.

#include "osal.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "logger_cpp.h"
#include "receiver/call.h"
#include "receiver/receiver.h"

using atschost::loggedStatusOf;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kOneShot = 2;

class Timers {
 public:
  // Never destroyed: timers may be enabled by any thread while the process exits.
  static Timers& instance() {
    static Timers& timers = *new Timers;
    return timers;
  }

  OSAL_timer_id create(const char* name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    timers_.push_back({name != nullptr ? name : "", false, {}, nullptr, nullptr});
    return static_cast<OSAL_timer_id>(timers_.size());
  }

  bool enable(OSAL_timer_id id, OSAL_timer_handler handler, void* arg, uint32_t milliseconds) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (id == 0 || id > timers_.size() || ending_) return false;
    if (!thread_.joinable()) {
      thread_ = std::thread(&Timers::run, this);
      process_ = ::getpid();
      // A handler that runs at exit ends before the objects that exist now are destroyed.
      std::atexit([] { instance().shutDown(); });
    }
    Timer& timer = timers_[id - 1];
    timer.running = true;
    timer.due = Clock::now() + std::chrono::milliseconds(milliseconds);
    timer.handler = handler;
    timer.arg = arg;
    changed_.notify_one();
    return true;
  }

  // The timers that run, each with the time that is left.
  void display() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto now = Clock::now();
    for (const Timer& timer : timers_) {
      if (!timer.running) continue;
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(timer.due - now);
      log_.Info("timer %s: due in %lld ms", timer.name.c_str(),
                static_cast<long long>(left.count()));
    }
    log_.Info("%zu timers", timers_.size());
  }

 private:
  struct Timer {
    std::string name;
    bool running;
    Clock::time_point due;
    OSAL_timer_handler handler;
    void* arg;
  };

  void run() {
    // Signals are for the program's own threads.
    sigset_t signals;
    ::sigfillset(&signals);
    ::pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    ::pthread_setname_np(::pthread_self(), "OSAL timers");
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ending_) {
      Timer* next = nullptr;
      for (Timer& timer : timers_) {
        if (timer.running && (next == nullptr || timer.due < next->due)) next = &timer;
      }
      if (next == nullptr) {
        changed_.wait(lock);
      } else if (const Clock::time_point due = next->due; due > Clock::now()) {
        changed_.wait_until(lock, due);
      } else {
        next->running = false;
        fire(*next, lock);
      }
    }
  }

  // Runs a handler without the lock, so that it may use timers.
  void fire(const Timer& timer, std::unique_lock<std::mutex>& lock) {
    const OSAL_timer_handler handler = timer.handler;
    void* const arg = timer.arg;
    const std::string name = timer.name;
    lock.unlock();
    try {
      handler(arg, 0);
    } catch (const std::exception& error) {
      log_.Error("OSAL timer %s: its handler threw: %s", name.c_str(), error.what());
    } catch (...) {
      log_.Error("OSAL timer %s: its handler threw", name.c_str());
    }
    lock.lock();
  }

  // At exit. A forked child has no timer thread to wait for.
  void shutDown() {
    if (process_ != ::getpid()) return;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ending_ = true;
      changed_.notify_one();
    }
    // The handler itself may end the process.
    if (std::this_thread::get_id() != thread_.get_id()) thread_.join();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Timer> timers_;  // the id is the position counted from 1
  std::thread thread_;
  pid_t process_ = 0;
  bool ending_ = false;
  LoggerCpp log_{"OSAL", "osal"};
};

}  // namespace

int OSAL_timer_create(const char* name, int type, OSAL_timer_id* timer) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (type != kOneShot || timer == nullptr) return false;
        *timer = Timers::instance().create(name);
        return true;
      },
      type, timer);
}

int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds) {
  return loggedStatusOf(
      __func__,
      [&] {
        return handler != nullptr && Timers::instance().enable(timer, handler, arg, milliseconds);
      },
      timer, milliseconds);
}

// No semaphores here: what waits is timers, events and scans.
void OSAL_display_sem_details_() {
  loggedStatusOf(__func__, [] {
    Timers::instance().display();
    if (auto* receiver = atschost::Receiver::existing()) receiver->display();
    return true;
  });
}
