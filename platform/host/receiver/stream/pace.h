// Measures the pace at which a recorded stream was broadcast.
#ifndef ATSC_HOST_RECEIVER_STREAM_PACE_H_
#define ATSC_HOST_RECEIVER_STREAM_PACE_H_

#include <cstdint>
#include <optional>

namespace atschost {

// Measures the mean rate of packets by the clocks of the stream: by its PCRs, without PCRs by its
// system time, without both 1000 packets a second. A recording that lacks packets of the broadcast
// is measured at its own, lower rate and so keeps its time. One thread.
class Pace {
 public:
  // Counts a packet.
  void packet(const uint8_t* packet);
  // Notes a system time that was received after the last packet.
  void systemTime(uint32_t gpsSeconds);
  // Marks that the next packet does not continue the last one.
  void seam();

  double packetsPerSecond() const;

 private:
  struct Span {
    uint64_t packets = 0;
    double seconds = 0;
  };
  struct Mark {
    uint64_t time = 0;
    uint64_t position = 0;  // in packets
  };

  uint64_t position_ = 0;
  std::optional<uint16_t> pcrPid_;  // the first PID with a PCR
  std::optional<Mark> lastPcr_;     // 90 kHz
  std::optional<Mark> lastTime_;    // seconds
  Span byPcr_;
  Span byTime_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_PACE_H_
