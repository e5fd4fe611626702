// RF channel plans: the frequencies that an automatic search visits.
#ifndef ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_
#define ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_

#include <cstdint>
#include <vector>

namespace atschost {

struct RfChannel {
  uint8_t number;
  uint32_t frequency;  // centre frequency, Hz
};

// Returns whether `source` is AI_INPUT_TERRESTRIAL or AI_INPUT_CABLE.
bool isSource(uint32_t source);

// Returns the modulation (AI_MODULATION_*) of a source, which is also the bit of its band.
uint32_t modulationOf(uint32_t source);

// Returns "vsb" or "qam".
const char* modulationName(uint32_t source);

// Returns the channels of a source in number order: terrestrial channels 2 to 69, or cable channels
// 1 to 135 of the standard (STD) plan of CEA-542.
const std::vector<RfChannel>& planOf(uint32_t source);

// Returns the RF channel number of a centre frequency; 0 if the plan has no such channel.
uint8_t rfChannel(uint32_t source, uint32_t frequency);

// Returns whether a tuner can be set to a frequency.
bool isTunable(uint32_t frequency);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_AIR_FREQUENCY_PLAN_H_
