// A file descriptor that is closed with its owner.
#ifndef ATSC_WEB_HTTP_DESCRIPTOR_H_
#define ATSC_WEB_HTTP_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace web {

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  int get() const { return value_; }

 private:
  int value_;
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_DESCRIPTOR_H_
