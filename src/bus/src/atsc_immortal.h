// Globals that are never destroyed.
#ifndef ATSC_ATSC_IMMORTAL_H_
#define ATSC_ATSC_IMMORTAL_H_

#include <utility>

namespace atsc {

// Holds a T that is constructed like any global and never destroyed: threads that run until the
// process has ended may use it while other globals are destroyed.
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
