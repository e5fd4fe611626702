// Globals of detached threads.
#ifndef ATSC_ATSC_IMMORTAL_H_
#define ATSC_ATSC_IMMORTAL_H_

#include <utility>

namespace atsc {

// Holds a T that is built with its other globals and never destroyed: threads that run until the
// process has ended may use it while the other globals go.
template <typename T>
class Immortal {
 public:
  template <typename... Arguments>
  explicit Immortal(Arguments&&... arguments) : value_(std::forward<Arguments>(arguments)...) {}
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;
  ~Immortal() {}

  T& operator*() { return value_; }
  T* operator->() { return &value_; }

 private:
  union {
    T value_;
  };
};

}  // namespace atsc

#endif  // ATSC_ATSC_IMMORTAL_H_
