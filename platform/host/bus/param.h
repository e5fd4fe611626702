// Frames of the BUS and the parcels in them.
//
// A frame is a FrameHeader and the items of one parcel. Both sides run on the same machine, so
// integers are in host byte order. An item is a tag byte, followed by
//   's': size of the text with its NUL (32 bits), the text, the NUL
//   'i': value (32 bits)
#ifndef ATSC_HOST_BUS_PARAM_H_
#define ATSC_HOST_BUS_PARAM_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bus.h"

namespace bus {

enum class FrameKind : uint32_t {
  kRequest = 0x71535542,         // "BUSq": the caller wants the items of the reply
  kRequestNoReply = 0x6E535542,  // "BUSn": the caller only waits for the end
  kReply = 0x72535542,           // "BUSr"
  kFailure = 0x66535542,         // "BUSf": sent when there is no reply or it is too large
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

// Size of a connection's receive buffer between frames; enough for a typical frame.
constexpr size_t kReceiveBuffer = 4096;

// Reads a header from kHeaderSize bytes.
FrameHeader readHeader(const char* bytes);

}  // namespace bus

// Contents of a parcel. The buffer starts with space for the header, so that a frame is sent
// without a copy.
struct BUSParam::Impl {
  // Empties the parcel and invalidates texts read from it.
  void clear();

  // Empties the parcel. Texts read from it stay valid.
  void empty();

  // Replaces the contents by a copy of received items. Returns false when the items are malformed;
  // the parcel is empty then.
  bool load(const char* items, size_t size);

  // Fills in the header. Returns the size of the frame, 0 when the parcel is too large for a frame.
  size_t seal(bus::FrameKind kind, uint32_t code, uint32_t flags);
  const char* frame() const { return bytes.data(); }

  // Reserves space for `size` more bytes. Texts that a reader holds stay valid.
  void grow(size_t size);

  std::vector<char> bytes;  // space for the header, then the items; empty before the first item
  size_t position = bus::kHeaderSize;      // of the next item to be read
  bool lent = false;                       // a reader holds a text in `bytes`
  std::vector<std::vector<char>> retired;  // earlier `bytes` with texts that readers hold
};

namespace bus {
struct ServedObject;
}

// Access to the implementation of the classes in bus.h.
struct BUSPlatform {
  using Parcel = BUSParam::Impl;
  static Parcel& of(BUSParam& parcel) { return *parcel.impl_; }
  static bus::ServedObject& of(BUSServerInterface& server);
};

#endif  // ATSC_HOST_BUS_PARAM_H_
