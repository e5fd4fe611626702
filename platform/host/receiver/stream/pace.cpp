#include "receiver/stream/pace.h"

#include <algorithm>

#include "receiver/stream/transport.h"

namespace atschost {
namespace {

constexpr double kDefaultRate = 1000;
constexpr double kLowestRate = 20;
constexpr double kHighestRate = 50000;  // above the rate of 256-QAM
constexpr uint64_t kPcrFrequency = 90000;
constexpr uint64_t kLongestGap = 10;  // seconds; a longer gap is a jump of the clock
constexpr double kEnoughByPcr = 0.5;  // seconds
constexpr double kEnoughByTime = 2;   // system time counts whole seconds

// Returns program_clock_reference_base (ISO/IEC 13818-1 2.4.3.4).
std::optional<uint64_t> pcrOf(const uint8_t* packet) {
  const bool hasPcr = packet[3] & 0x20 && packet[4] >= 7 && packet[5] & 0x10;
  if (!hasPcr) return std::nullopt;
  return uint64_t{read16(packet + 6)} << 17 | uint64_t{read16(packet + 8)} << 1 | packet[10] >> 7;
}

}  // namespace

void Pace::packet(const uint8_t* packet) {
  ++position_;
  const auto pcr = pcrOf(packet);
  if (!pcr) return;
  if (!pcrPid_) pcrPid_ = packetPid(packet);
  if (*pcrPid_ != packetPid(packet)) return;
  if (lastPcr_) {
    const uint64_t ticks = (*pcr - lastPcr_->time) & 0x1FFFFFFFF;
    if (ticks > 0 && ticks <= kLongestGap * kPcrFrequency) {
      byPcr_.packets += position_ - lastPcr_->position;
      byPcr_.seconds += static_cast<double>(ticks) / kPcrFrequency;
    }
  }
  lastPcr_ = Mark{*pcr, position_};
}

void Pace::systemTime(uint32_t gpsSeconds) {
  if (lastTime_ && lastTime_->time == gpsSeconds) return;
  if (lastTime_) {
    const uint32_t seconds = gpsSeconds - static_cast<uint32_t>(lastTime_->time);
    if (seconds <= kLongestGap) {
      byTime_.packets += position_ - lastTime_->position;
      byTime_.seconds += seconds;
    }
  }
  lastTime_ = Mark{gpsSeconds, position_};
}

void Pace::seam() {
  lastPcr_.reset();
  lastTime_.reset();
}

double Pace::packetsPerSecond() const {
  double rate = kDefaultRate;
  if (byPcr_.seconds >= kEnoughByPcr) {
    rate = static_cast<double>(byPcr_.packets) / byPcr_.seconds;
  } else if (byTime_.seconds >= kEnoughByTime) {
    rate = static_cast<double>(byTime_.packets) / byTime_.seconds;
  }
  return std::clamp(rate, kLowestRate, kHighestRate);
}

}  // namespace atschost
