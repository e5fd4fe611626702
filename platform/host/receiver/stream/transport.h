// Transport stream layer: packets and sections (ISO/IEC 13818-1 2.4.3 and 2.4.4).
#ifndef ATSC_HOST_RECEIVER_STREAM_TRANSPORT_H_
#define ATSC_HOST_RECEIVER_STREAM_TRANSPORT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "receiver/stream/section.h"

namespace atschost {

constexpr size_t kPacketSize = 188;
constexpr uint16_t kPatPid = 0x0000;
constexpr uint16_t kPsipBasePid = 0x1FFB;
constexpr uint16_t kNullPid = 0x1FFF;

inline uint16_t read16(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
inline uint16_t read13(const uint8_t* bytes) { return read16(bytes) & 0x1FFF; }
inline uint16_t read12(const uint8_t* bytes) { return read16(bytes) & 0x0FFF; }

// Finds the packets in a byte stream. A sync byte counts if another sync byte follows one packet
// later, so that a lost or inserted byte costs one packet. One thread.
class PacketSync {
 public:
  using Sink = std::function<void(const uint8_t* packet)>;

  // Passes on the packets that are complete; keeps the rest.
  void push(const uint8_t* bytes, size_t size, const Sink& sink);
  // Ends the stream: passes on the last packet, which has no successor.
  void finish(const Sink& sink);

  // Returns how often bytes were skipped to find a packet.
  uint64_t losses() const { return losses_; }

 private:
  void pushPart(const uint8_t* bytes, size_t size, const Sink& sink);

  std::vector<uint8_t> buffer_;
  bool synced_ = false;
  bool skipped_ = false;  // since the last packet
  uint64_t losses_ = 0;
};

inline uint16_t packetPid(const uint8_t* packet) { return read13(packet + 1); }

// Puts the sections of one PID together. One thread.
class SectionAssembler {
 public:
  // Receives a whole section: at least 3 bytes, as long as its section_length says. Nothing else is
  // checked.
  using Sink = std::function<void(const uint8_t* section, size_t size)>;

  // Takes a packet. Returns null, or the fault of the packet or of the section in it, a literal.
  const char* push(const uint8_t* packet, const Sink& sink);

 private:
  const char* collect(const uint8_t* bytes, size_t size, const Sink& sink);

  std::array<uint8_t, kPacketSize> lastPacket_{};
  bool first_ = true;
  bool collecting_ = false;
  std::vector<uint8_t> section_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_TRANSPORT_H_
