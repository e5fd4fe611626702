// Mutex and MutexLock, annotated for clang's thread-safety analysis (-Wthread-safety). Other
// compilers ignore the annotations.
//
// Lock order, where more than one is held:
//   1. the State of playing.cpp or of scan.cpp, never both;
//   2. the Settings of settings.cpp;
//   3. Worker::mutex_.
// bus.cpp takes its locks without any of these: first the mutex of a client, then NameLock.
// No lock is held during a call of the library.
#ifndef MINIMAL_PLATFORM_MUTEX_H_
#define MINIMAL_PLATFORM_MUTEX_H_

#include <mutex>

#if defined(__clang__)
#define MINIMAL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define MINIMAL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) MINIMAL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY MINIMAL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) MINIMAL_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) MINIMAL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) MINIMAL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) MINIMAL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) MINIMAL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace minimal {

// Use std::condition_variable_any to wait.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace minimal

#endif  // MINIMAL_PLATFORM_MUTEX_H_
