// Extracts the sections of tables from a transport stream.
#ifndef ATSC_HOST_RECEIVER_STREAM_DEMUX_H_
#define ATSC_HOST_RECEIVER_STREAM_DEMUX_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "receiver/stream/transport.h"

namespace atschost {

// One thread.
class Demux {
 public:
  using Wanted = std::function<bool(uint16_t pid)>;
  // Returns null, or the fault for which the section was dropped, a literal.
  using Sink = std::function<const char*(const Section& section)>;
  using PacketSink = std::function<void(const uint8_t* packet)>;

  // `wanted` selects the PIDs. `onPacket`, if given, receives every packet before its sections go
  // to `sink`.
  Demux(Wanted wanted, Sink sink, PacketSink onPacket = nullptr);

  void push(const uint8_t* bytes, size_t size);

  // Ends the stream. The next push() begins anew; a section that is not complete is dropped.
  void finish();

  uint64_t packets() const { return packets_; }

  // Returns a line on the faults of the stream since the last call; empty without any. Each kind of
  // fault is reported once.
  std::string takeFaults();

 private:
  struct Seen {
    uint64_t count = 0;
    uint16_t firstPid = 0;
    bool reported = false;
  };

  void pushPacket(const uint8_t* packet);
  void note(uint16_t pid, const char* fault);

  const Wanted wanted_;
  const Sink sink_;
  const PacketSink onPacket_;
  const PacketSync::Sink packetSink_;
  PacketSync sync_;
  std::map<uint16_t, SectionAssembler> assemblers_;  // by PID
  uint64_t packets_ = 0;
  std::map<std::string_view, Seen> faults_;
  bool lossesReported_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_DEMUX_H_
