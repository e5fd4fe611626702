// What a fuzzer's input decides, taken from its front.
#ifndef ATSC_FUZZ_INPUT_H_
#define ATSC_FUZZ_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace fuzz {

// The input as a row of decisions. When it is used up, every further one is 0 or empty.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  size_t left() const { return size_; }

  // The next bytes as a little-endian number, so that small numbers are short to write.
  template <typename Number>
  Number number() {
    Number value{};
    for (size_t i = 0; i < sizeof value && size_ > 0; ++i) {
      value =
          static_cast<Number>(value | static_cast<Number>(static_cast<Number>(byte()) << 8 * i));
    }
    return value;
  }

  uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }

  // A number from 0 to below `end`.
  uint32_t below(uint32_t end) {
    return (end <= 256 ? byte() : end <= 65536 ? number<uint16_t>() : number<uint32_t>()) % end;
  }

  // The next bytes, as many as there are.
  std::string bytes(size_t count) {
    count = std::min(count, size_);
    std::string taken(reinterpret_cast<const char*>(data_), count);
    data_ += count;
    size_ -= count;
    return taken;
  }

  // The bytes up to a newline, which is taken too; a text that a dictionary can help with.
  std::string line() {
    const void* end = size_ > 0 ? std::memchr(data_, '\n', size_) : nullptr;
    std::string taken = bytes(
        end != nullptr ? static_cast<size_t>(static_cast<const uint8_t*>(end) - data_) : size_);
    byte();
    return taken;
  }

  // The lines up to an empty one.
  std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (std::string text; !(text = line()).empty();) all.push_back(text);
    return all;
  }

  std::string rest() { return bytes(size_); }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace fuzz

#endif  // ATSC_FUZZ_INPUT_H_
