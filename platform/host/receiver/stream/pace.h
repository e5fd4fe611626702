// At what pace a recorded stream was broadcast.
#ifndef ATSC_HOST_RECEIVER_STREAM_PACE_H_
#define ATSC_HOST_RECEIVER_STREAM_PACE_H_

#include <cstdint>
#include <optional>

namespace atschost {

// The mean rate of packets by the stream's own clocks: its PCRs, else its system time, else 1000
// packets a second. A recording that was thinned out keeps its time. One thread.
class Pace {
 public:
  void packet(const uint8_t* packet);
  void systemTime(uint32_t gpsSeconds);
  // The stream begins anew.
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
  std::optional<uint16_t> pcrPid_;  // the first one with a PCR
  std::optional<Mark> lastPcr_;     // 90 kHz
  std::optional<Mark> lastTime_;    // seconds
  Span byPcr_;
  Span byTime_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_PACE_H_
