#include "receiver/stream/pace.h"

#include <algorithm>

#include "receiver/stream/transport.h"

namespace atschost {
namespace {

constexpr double kDefaultRate = 1000;
constexpr double kLowestRate = 20;
constexpr double kHighestRate = 50000;  // over that of 256-QAM
constexpr uint64_t kPcrFrequency = 90000;
constexpr uint64_t kLongestGap = 10;  // seconds; more is a jump of the clock
constexpr double kEnoughByPcr = 0.5;  // seconds
constexpr double kEnoughByTime = 2;   // system time counts whole seconds

// program_clock_reference_base (ISO/IEC 13818-1 2.4.3.4).
std::optional<uint64_t> pcr_of(const uint8_t* packet) {
  const bool has_pcr = packet[3] & 0x20 && packet[4] >= 7 && packet[5] & 0x10;
  if (!has_pcr) return std::nullopt;
  return uint64_t{read16(packet + 6)} << 17 | uint64_t{read16(packet + 8)} << 1 | packet[10] >> 7;
}

}  // namespace

void Pace::packet(const uint8_t* packet) {
  ++position_;
  const auto pcr = pcr_of(packet);
  if (!pcr) return;
  if (!pcr_pid_) pcr_pid_ = packet_pid(packet);
  if (*pcr_pid_ != packet_pid(packet)) return;
  if (last_pcr_) {
    const uint64_t ticks = (*pcr - last_pcr_->time) & 0x1FFFFFFFF;
    if (ticks > 0 && ticks <= kLongestGap * kPcrFrequency) {
      by_pcr_.packets += position_ - last_pcr_->position;
      by_pcr_.seconds += static_cast<double>(ticks) / kPcrFrequency;
    }
  }
  last_pcr_ = Mark{*pcr, position_};
}

void Pace::system_time(uint32_t gps_seconds) {
  if (last_time_ && last_time_->time == gps_seconds) return;
  if (last_time_) {
    const uint32_t seconds = gps_seconds - static_cast<uint32_t>(last_time_->time);
    if (seconds <= kLongestGap) {
      by_time_.packets += position_ - last_time_->position;
      by_time_.seconds += seconds;
    }
  }
  last_time_ = Mark{gps_seconds, position_};
}

void Pace::seam() {
  last_pcr_.reset();
  last_time_.reset();
}

double Pace::packets_per_second() const {
  double rate = kDefaultRate;
  if (by_pcr_.seconds >= kEnoughByPcr) {
    rate = static_cast<double>(by_pcr_.packets) / by_pcr_.seconds;
  } else if (by_time_.seconds >= kEnoughByTime) {
    rate = static_cast<double>(by_time_.packets) / by_time_.seconds;
  }
  return std::clamp(rate, kLowestRate, kHighestRate);
}

}  // namespace atschost
