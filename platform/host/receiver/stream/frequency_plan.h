// RF channel plans: which frequencies an automatic search visits.
#ifndef ATSC_HOST_RECEIVER_STREAM_FREQUENCY_PLAN_H_
#define ATSC_HOST_RECEIVER_STREAM_FREQUENCY_PLAN_H_

#include <cstdint>
#include <vector>

namespace atschost {

struct RfChannel {
  uint8_t number;
  uint32_t frequency;  // centre frequency, Hz
};

bool is_source(uint32_t source);

// AI_MODULATION_* that a source uses; also the bit of its band.
uint32_t modulation_of(uint32_t source);

// "vsb" or "qam".
const char* modulation_name(uint32_t source);

// The channels of a source in number order: terrestrial channels 2 to 69, or cable channels 1 to
// 135 of the standard (STD) plan of CEA-542.
const std::vector<RfChannel>& plan_of(uint32_t source);

// RF channel number of a centre frequency, 0 when the plan has no such channel.
uint8_t rf_channel(uint32_t source, uint32_t frequency);

// Whether a tuner can be set to a frequency at all.
bool is_tunable(uint32_t frequency);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_FREQUENCY_PLAN_H_
