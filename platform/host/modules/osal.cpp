// OSAL timers: one thread waits for the earliest of all running timers.

#include "osal.h"

#include <chrono>
#include <exception>
#include <string>
#include <vector>

#include "logger_cpp.h"
#include "modules/call.h"
#include "process/immortal.h"
#include "process/mutex.h"
#include "process/shutdown.h"
#include "process/status.h"
#include "process/thread.h"

using atschost::loggedStatusOf;
using atschost::MutexLock;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kOneShot = 2;

class Timers {
 public:
  // Never destroyed: any thread may enable timers while the process exits.
  static Timers& instance() {
    static Timers& timers = atschost::immortal<Timers>();
    return timers;
  }

  OSAL_timer_id create(const char* name) {
    const MutexLock lock(mutex_);
    timers_.push_back({name != nullptr ? name : "", false, {}, nullptr, nullptr});
    return static_cast<OSAL_timer_id>(timers_.size());
  }

  bool enable(OSAL_timer_id id, OSAL_timer_handler handler, void* arg, uint32_t milliseconds) {
    const MutexLock lock(mutex_);
    if (id == 0 || id > timers_.size() || thread_.isEnding()) return false;
    if (!started_) {
      thread_.start("OSAL timers", [this] { run(); });
      started_ = true;
      atschost::atShutDown(atschost::ShutDownStage::kTimers, [] { instance().shutDown(); });
    }
    Timer& timer = timers_[id - 1];
    timer.running = true;
    timer.due = Clock::now() + std::chrono::milliseconds(milliseconds);
    timer.handler = handler;
    timer.arg = arg;
    changed_.notifyOne();
    return true;
  }

  // Logs the running timers with their remaining times.
  void display() {
    const MutexLock lock(mutex_);
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
    MutexLock lock(mutex_);
    while (!thread_.isEnding()) {
      Timer* next = nullptr;  // not used after a wait: timers may have been created
      for (Timer& timer : timers_) {
        if (timer.running && (next == nullptr || timer.due < next->due)) next = &timer;
      }
      if (next == nullptr) {
        changed_.wait(lock);
      } else if (next->due > Clock::now()) {
        changed_.waitUntil(lock, next->due);
      } else {
        next->running = false;
        const Timer due = *next;
        lock.unlock();
        fire(due);
        lock.lock();
      }
    }
  }

  // Calls the handler without the lock, so that it can use timers.
  void fire(const Timer& timer) EXCLUDES(mutex_) {
    try {
      timer.handler(timer.arg, 0);
    } catch (const std::exception& error) {
      log_.Error("OSAL timer %s: its handler threw: %s", timer.name.c_str(), error.what());
    } catch (...) {
      log_.Error("OSAL timer %s: its handler threw", timer.name.c_str());
    }
  }

  // Does not wait for a handler that itself ends the process.
  void shutDown() {
    {
      const MutexLock lock(mutex_);
      thread_.askToEnd();
      changed_.notifyOne();
    }
    thread_.join();
  }

  atschost::Mutex mutex_;
  atschost::CondVar changed_;
  std::vector<Timer> timers_ GUARDED_BY(mutex_);  // the id is the position, counted from 1
  bool started_ GUARDED_BY(mutex_) = false;
  atschost::Thread thread_;
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

// The platform has no semaphores: logs timers, events and scans instead.
void OSAL_display_sem_details_() {
  loggedStatusOf(__func__, [] {
    Timers::instance().display();
    atschost::writeStatus();
    return true;
  });
}
