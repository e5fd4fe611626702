#pragma once

#include <cstdint>
#include <stdexcept>

#include "lineup.h"
#include "sections.h"

namespace psipmux {

constexpr unsigned kPacketSize = 188;

/// Constant rate of every stream written: 1000 packets, 1.504 Mbit, a second.
constexpr unsigned kPacketsPerSecond = 1000;

// A stream is a row of cycles that all hold the same sections, with the guide between them. As
// there are 16 of them in a period, the number of packets of every PID is a multiple of 16, and the
// 4-bit continuity counters run on unbroken when the stream is played in a loop. Repetition in a
// cycle keeps the longest intervals of A/65 7.2 and A/53 (transport subsystem): PAT 100 ms, MGT
// 150 ms, VCT and PMT 400 ms, STT 1 s.
constexpr unsigned kCyclesPerPeriod = 16;
constexpr unsigned kCyclesPerSecond = 4;
constexpr unsigned kPacketsPerCycle = kPacketsPerSecond / kCyclesPerSecond;
constexpr unsigned kPeriodSeconds = kCyclesPerPeriod / kCyclesPerSecond;

// The guide is sent whole up to once a second, at least twice in a stream, if need be in one of
// several periods; in the longest stream once is enough. EIT-0 comes more often, as A/65 7.2 gives
// it 500 ms.
constexpr unsigned kMaxPeriods = 4;
constexpr unsigned kEit0PerSecond = 3;

/// A channel whose tables exceed the rate of the stream.
class MuxError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The transport stream of a channel, to be played in a loop: kPeriodSeconds of packets, or as many
/// times that as the guide needs. `systemTime` (GPS seconds) is the time of its first packet.
/// Throws MuxError.
Bytes multiplex(const Lineup& lineup, const Channel& channel, uint32_t systemTime);

}  // namespace psipmux
