// The frames of the BUS and the parcels in them.
//
// A frame is a FrameHeader and the items of one parcel. Both ends run on one machine, so integers
// are in host byte order. An item is a tag byte and
//   's': the text's size with its NUL (32 bits), the text, the NUL
//   'i': the value (32 bits)
#ifndef ATSC_HOST_BUS_PARAM_H_
#define ATSC_HOST_BUS_PARAM_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bus.h"

namespace bus {

enum class FrameKind : uint32_t {
  kRequest = 0x71535542,         // "BUSq": the caller wants the reply's items
  kRequestNoReply = 0x6E535542,  // "BUSn": the caller only waits for the end
  kReply = 0x72535542,           // "BUSr"
  kFailure = 0x66535542,         // "BUSf": instead of a reply that cannot be carried
};

struct FrameHeader {
  FrameKind kind;
  uint32_t length;  // bytes that follow the header
  uint32_t code;
  uint32_t flags;
};

constexpr size_t kHeaderSize = sizeof(FrameHeader);
constexpr size_t kMaxFrame = 16 * 1024 * 1024;
constexpr size_t kMaxBody = kMaxFrame - kHeaderSize;

// What a connection keeps to receive into between frames; enough for an everyday frame.
constexpr size_t kReceiveBuffer = 4096;

// Reads a header from kHeaderSize bytes.
FrameHeader readHeader(const char* bytes);

}  // namespace bus

// A parcel keeps its items behind room for the header: a frame goes out without being copied.
struct BUSParam::Impl {
  // Becomes empty. Texts read before are gone.
  void clear();

  // Becomes empty; texts read before stay.
  void empty();

  // Takes a copy of received items. False when they are malformed (the parcel is empty then).
  bool load(const char* items, size_t size);

  // Completes the header. Returns the frame's size, 0 when the parcel is too large to be carried.
  size_t seal(bus::FrameKind kind, uint32_t code, uint32_t flags);
  const char* frame() const { return bytes.data(); }

  // Makes room for `size` more bytes without touching texts that a reader holds.
  void grow(size_t size);

  std::vector<char> bytes;  // the header's room and the items; empty before the first item
  size_t position = bus::kHeaderSize;      // of the next item to read
  bool lent = false;                       // a reader holds a text inside `bytes`
  std::vector<std::vector<char>> retired;  // earlier `bytes` with texts that readers hold
};

namespace bus {
struct ServedObject;
}

// What is behind the classes of bus.h.
struct BUSPlatform {
  using Parcel = BUSParam::Impl;
  static Parcel& of(BUSParam& parcel) { return *parcel.impl_; }
  static bus::ServedObject& of(BUSServerInterface& server);
};

#endif  // ATSC_HOST_BUS_PARAM_H_
