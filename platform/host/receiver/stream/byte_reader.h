// Reads the fields of a table in order.
#ifndef ATSC_HOST_RECEIVER_STREAM_BYTE_READER_H_
#define ATSC_HOST_RECEIVER_STREAM_BYTE_READER_H_

#include <cstddef>
#include <cstdint>

namespace atschost {

// Never reads past the end: a field that does not fit reads as 0, and no bytes are left after it.
class ByteReader {
 public:
  ByteReader(const uint8_t* bytes, size_t size) : at_(bytes), left_(size) {}

  const uint8_t* data() const { return at_; }
  size_t left() const { return left_; }
  // Returns whether a field did not fit.
  bool passedEnd() const { return passedEnd_; }

  uint8_t u8() { return static_cast<uint8_t>(number(1)); }
  uint16_t u16() { return static_cast<uint16_t>(number(2)); }
  uint32_t u24() { return number(3); }
  uint32_t u32() { return number(4); }

  // Returns a reader of the next `size` bytes and skips them; an empty reader if they do not fit.
  ByteReader part(size_t size) {
    if (!fits(size)) return {at_, 0};
    const ByteReader taken(at_, size);
    at_ += size;
    left_ -= size;
    return taken;
  }

 private:
  bool fits(size_t size) {
    if (size <= left_) return true;
    passedEnd_ = true;
    left_ = 0;
    return false;
  }

  uint32_t number(size_t size) {
    if (!fits(size)) return 0;
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) value = value << 8 | at_[i];
    at_ += size;
    left_ -= size;
    return value;
  }

  const uint8_t* at_;
  size_t left_;
  bool passedEnd_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_BYTE_READER_H_
