#pragma once

#include <cstdint>
#include <stdexcept>

#include "lineup.h"
#include "sections.h"

namespace psipmux {

constexpr unsigned kPacketSize = 188;

/// Constant rate of every stream written: 1000 packets, 1.504 Mbit, a second.
constexpr unsigned kPacketsPerSecond = 1000;

// A stream is a row of cycles that all hold the same sections. As there are 16 of them, the number
// of packets of every PID is a multiple of 16, and the 4-bit continuity counters run on unbroken
// when the stream is played in a loop. Repetition in a cycle keeps the longest intervals of
// A/65 7.2 and A/53 (transport subsystem): PAT 100 ms, MGT 150 ms, VCT and PMT 400 ms, STT 1 s.
constexpr unsigned kCycles = 16;
constexpr unsigned kCyclesPerSecond = 4;
constexpr unsigned kPacketsPerCycle = kPacketsPerSecond / kCyclesPerSecond;

/// A channel whose tables exceed the rate of the stream.
class MuxError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A table, and how often it is sent in a cycle.
struct Carousel {
  uint16_t pid = 0;
  unsigned repetitions = 1;
  std::vector<Bytes> sections;
};

/// All tables of a channel as they are at `system_time` (GPS seconds).
std::vector<Carousel> ChannelTables(const Lineup& lineup, const Channel& channel,
                                    uint32_t system_time);

/// The transport stream of a channel, to be played in a loop: kCycles / kCyclesPerSecond seconds of
/// packets. `system_time` (GPS seconds) is the time of its first packet. Throws MuxError.
Bytes Multiplex(const Lineup& lineup, const Channel& channel, uint32_t system_time);

}  // namespace psipmux
