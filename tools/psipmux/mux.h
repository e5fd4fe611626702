#pragma once

#include <cstdint>
#include <stdexcept>

#include "lineup.h"
#include "sections.h"

namespace psipmux {

/// Constant rate of each stream: 1000 packets or 1.504 Mbit per second.
constexpr unsigned kPacketsPerSecond = 1000;

// A stream is a sequence of cycles with the same sections, interleaved with the guide. A period has
// 16 cycles, so that the number of packets of each PID is a multiple of 16 and the 4-bit continuity
// counters have no discontinuity when the stream is played in a loop. Repetition within a cycle
// keeps the maximum intervals of A/65 7.2 and A/53 (transport subsystem): PAT 100 ms, MGT 150 ms,
// VCT and PMT 400 ms, STT 1 s.
constexpr unsigned kCyclesPerPeriod = 16;
constexpr unsigned kCyclesPerSecond = 4;
constexpr unsigned kPacketsPerCycle = kPacketsPerSecond / kCyclesPerSecond;
constexpr unsigned kPeriodSeconds = kCyclesPerPeriod / kCyclesPerSecond;

// The whole guide is sent at most once per second and at least twice per stream, which has several
// periods if necessary; in the longest stream at least once. EIT-0 is sent more often: its maximum
// interval is 500 ms (A/65 7.2).
constexpr unsigned kMaxPeriods = 4;
constexpr unsigned kEit0PerSecond = 3;

/// A channel whose tables exceed the rate of the stream.
class MuxError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Returns the transport stream of a channel, to be played in a loop. Its length is a multiple of
/// kPeriodSeconds, depending on the guide. `systemTime` (GPS seconds) is the time of its first
/// packet. Throws MuxError.
Bytes multiplex(const Lineup& lineup, const Channel& channel, uint32_t systemTime);

}  // namespace psipmux
