// RF channel plans: which frequencies an automatic search visits.
#ifndef ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_
#define ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_

#include <cstdint>
#include <vector>

namespace atschost {

struct RfChannel {
  uint8_t number;
  uint32_t frequency;  // centre frequency, Hz
};

bool isSource(uint32_t source);

// AI_MODULATION_* that a source uses; also the bit of its band.
uint32_t modulationOf(uint32_t source);

// "vsb" or "qam".
const char* modulationName(uint32_t source);

// The channels of a source in number order: terrestrial channels 2 to 69, or cable channels 1 to
// 135 of the standard (STD) plan of CEA-542.
const std::vector<RfChannel>& planOf(uint32_t source);

// RF channel number of a centre frequency, 0 when the plan has no such channel.
uint8_t rfChannel(uint32_t source, uint32_t frequency);

// Whether a tuner can be set to a frequency at all.
bool isTunable(uint32_t frequency);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_
