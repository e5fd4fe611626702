#include "bus/param.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr char kText = 's';
constexpr char kInteger = 'i';
constexpr size_t kTextOverhead = 1 + sizeof(uint32_t);
constexpr size_t kIntegerSize = 1 + sizeof(int32_t);
// Space that a text leaves for the integers that follow it.
constexpr size_t kIntegerRoom = 64;
// Larger buffers are freed instead of reused.
constexpr size_t kKeptCapacity = 64 * 1024;

uint32_t readWord(const char* bytes) {
  uint32_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

// Returns the size of the item at `bytes`, 0 when it is malformed.
size_t itemSize(const char* bytes, size_t available) {
  if (bytes[0] == kInteger) return available >= kIntegerSize ? kIntegerSize : 0;
  if (bytes[0] != kText || available < kTextOverhead) return 0;
  const size_t size = readWord(bytes + 1);
  if (size == 0 || size > available - kTextOverhead) return 0;
  const char* const text = bytes + kTextOverhead;
  if (std::memchr(text, '\0', size) != text + size - 1) return 0;
  return kTextOverhead + size;
}

}  // namespace

bus::FrameHeader bus::readHeader(const char* bytes) {
  FrameHeader header;
  std::memcpy(&header, bytes, sizeof header);
  return header;
}

void BUSParam::Impl::clear() {
  if (bytes.capacity() > kKeptCapacity) std::vector<char>().swap(bytes);
  bytes.clear();
  position = bus::kHeaderSize;
  lent = false;
  retired.clear();
}

void BUSParam::Impl::empty() {
  if (lent) retired.push_back(std::exchange(bytes, {}));
  lent = false;
  bytes.clear();
  position = bus::kHeaderSize;
}

bool BUSParam::Impl::load(const char* items, size_t size) {
  empty();
  for (size_t at = 0; at < size;) {
    const size_t item = itemSize(items + at, size - at);
    if (item == 0) return false;
    at += item;
  }
  grow(size);
  bytes.insert(bytes.end(), items, items + size);
  return true;
}

size_t BUSParam::Impl::seal(bus::FrameKind kind, uint32_t code, uint32_t flags) {
  grow(0);
  const size_t length = bytes.size() - bus::kHeaderSize;
  if (length > bus::kMaxBody) return 0;
  const bus::FrameHeader header{kind, static_cast<uint32_t>(length), code, flags};
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes.size();
}

void BUSParam::Impl::grow(size_t size) {
  const size_t used = std::max(bytes.size(), bus::kHeaderSize);
  if (used + size > bytes.capacity()) {
    std::vector<char> larger;
    larger.reserve(std::max(used + size + kIntegerRoom, 2 * bytes.capacity()));
    larger.insert(larger.end(), bytes.begin(), bytes.end());
    bytes.swap(larger);
    if (lent) retired.push_back(std::move(larger));
    lent = false;
  }
  if (bytes.size() < bus::kHeaderSize) bytes.resize(bus::kHeaderSize);
}

BUSParam::BUSParam() : impl_(std::make_unique<Impl>()) {}

BUSParam::~BUSParam() = default;

int BUSParam::writeCString(const char* text) {
  if (text == nullptr) return -1;
  const size_t used = std::max(impl_->bytes.size(), bus::kHeaderSize) - bus::kHeaderSize;
  const size_t size = std::strlen(text) + 1;
  constexpr size_t kLimit = bus::kMaxBody - kIntegerRoom - kTextOverhead;
  if (used > kLimit || size > kLimit - used) return -1;
  try {
    impl_->grow(kTextOverhead + size);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  const uint32_t word = static_cast<uint32_t>(size);
  const char* const wordBytes = reinterpret_cast<const char*>(&word);
  std::vector<char>& bytes = impl_->bytes;
  bytes.push_back(kText);
  bytes.insert(bytes.end(), wordBytes, wordBytes + sizeof word);
  bytes.insert(bytes.end(), text, text + size);
  return 0;
}

const char* BUSParam::readCString() {
  Impl& parcel = *impl_;
  if (parcel.position >= parcel.bytes.size() || parcel.bytes[parcel.position] != kText) {
    return nullptr;
  }
  const char* const item = parcel.bytes.data() + parcel.position;
  parcel.position += kTextOverhead + readWord(item + 1);
  parcel.lent = true;
  return item + kTextOverhead;
}

int BUSParam::writeInt32(int32_t value) {
  impl_->grow(kIntegerSize);
  const char* const valueBytes = reinterpret_cast<const char*>(&value);
  impl_->bytes.push_back(kInteger);
  impl_->bytes.insert(impl_->bytes.end(), valueBytes, valueBytes + sizeof value);
  return 0;
}

int32_t BUSParam::readInt32() {
  Impl& parcel = *impl_;
  while (parcel.position < parcel.bytes.size()) {
    const char* const item = parcel.bytes.data() + parcel.position;
    if (*item == kInteger) {
      parcel.position += kIntegerSize;
      return static_cast<int32_t>(readWord(item + 1));
    }
    parcel.position += kTextOverhead + readWord(item + 1);
  }
  return 0;
}
