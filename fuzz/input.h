// Decisions that a fuzzer takes from the start of its input, and what it requires of the result.
#ifndef ATSC_FUZZ_INPUT_H_
#define ATSC_FUZZ_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace fuzz {

// Ends the run when `holds` is false: the input is a finding.
inline void require(bool holds, const std::string& what, const std::string& shown = {}) {
  if (holds) return;
  fprintf(stderr, "violated: %s: %s\n", what.c_str(), shown.c_str());
  abort();
}

// The input as a sequence of decisions. When it is used up, all further decisions are 0 or empty.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  size_t left() const { return size_; }

  // Returns the next bytes as a number or a record, with 0 for missing bytes.
  template <typename Value>
  Value value() {
    Value value{};
    const std::string taken = bytes(sizeof value);
    std::memcpy(&value, taken.data(), taken.size());
    return value;
  }

  uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }

  // Returns a number from 0 to below `end`.
  uint32_t below(uint32_t end) {
    return (end <= 256 ? byte() : end <= 65536 ? value<uint16_t>() : value<uint32_t>()) % end;
  }

  // Returns the next bytes, at most `count`.
  std::string bytes(size_t count) {
    count = std::min(count, size_);
    std::string taken(reinterpret_cast<const char*>(data_), count);
    data_ += count;
    size_ -= count;
    return taken;
  }

  // Returns the bytes up to a newline and removes both. Suits texts of a dictionary.
  std::string line() {
    const void* end = size_ > 0 ? std::memchr(data_, '\n', size_) : nullptr;
    std::string taken = bytes(
        end != nullptr ? static_cast<size_t>(static_cast<const uint8_t*>(end) - data_) : size_);
    byte();
    return taken;
  }

  // Returns the lines up to an empty line.
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
