// Locks that clang's thread-safety analysis checks (-Wthread-safety).
#ifndef ATSC_HOST_PROCESS_MUTEX_H_
#define ATSC_HOST_PROCESS_MUTEX_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

// The attributes of https://clang.llvm.org/docs/ThreadSafetyAnalysis.html; empty for other
// compilers.
#if defined(__clang__)
#define ATSC_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ATSC_THREAD_SAFETY(attribute)
#endif
#define GUARDED_BY(mutex) ATSC_THREAD_SAFETY(guarded_by(mutex))
#define REQUIRES(...) ATSC_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ATSC_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ATSC_THREAD_SAFETY(no_thread_safety_analysis)

namespace atschost {

class ATSC_THREAD_SAFETY(capability("mutex")) Mutex {
 public:
  void lock() ATSC_THREAD_SAFETY(acquire_capability()) { mutex_.lock(); }
  void unlock() ATSC_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }
  bool tryLock() ATSC_THREAD_SAFETY(try_acquire_capability(true)) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a mutex until the end of its scope. Can be released and locked again in between.
class ATSC_THREAD_SAFETY(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ATSC_THREAD_SAFETY(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  // Takes over a mutex that the caller has locked.
  MutexLock(Mutex& mutex, std::adopt_lock_t adopt) REQUIRES(mutex) : lock_(mutex.mutex_, adopt) {}
  ~MutexLock() ATSC_THREAD_SAFETY(release_capability()) {}

  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() ATSC_THREAD_SAFETY(acquire_capability()) { lock_.lock(); }
  void unlock() ATSC_THREAD_SAFETY(release_capability()) { lock_.unlock(); }

 private:
  friend class CondVar;
  std::unique_lock<std::mutex> lock_;
};

// Waiting releases the mutex and locks it again. A wait can end without a notification, so callers
// loop until their condition is true.
class CondVar {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  // Returns false once `deadline` has passed.
  bool waitUntil(MutexLock& lock, Instant deadline) {
    return condition_.wait_until(lock.lock_, deadline) == std::cv_status::no_timeout;
  }
  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace atschost

#endif  // ATSC_HOST_PROCESS_MUTEX_H_
