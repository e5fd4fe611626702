#include "receiver/air/frequency_plan.h"

#include "middleware_types.h"

namespace atschost {
namespace {

constexpr uint32_t kMHz = 1000000;

// Consecutive channels, 6 MHz apart.
struct Band {
  uint8_t first, last;
  uint32_t frequency;  // MHz, of the first channel
};

constexpr Band kTerrestrial[] = {{2, 4, 57}, {5, 6, 79}, {7, 13, 177}, {14, 69, 473}};
constexpr Band kCable[] = {{1, 1, 75},    {2, 4, 57},    {5, 6, 79},   {7, 13, 177},
                           {14, 22, 123}, {23, 94, 219}, {95, 99, 93}, {100, 135, 651}};

template <size_t N>
std::vector<RfChannel> expand(const Band (&bands)[N]) {
  std::vector<RfChannel> plan;
  for (const Band& band : bands)
    for (unsigned n = band.first; n <= band.last; ++n)
      plan.push_back({static_cast<uint8_t>(n), (band.frequency + 6 * (n - band.first)) * kMHz});
  return plan;
}

}  // namespace

bool isSource(uint32_t source) {
  return source == AI_INPUT_TERRESTRIAL || source == AI_INPUT_CABLE;
}

uint32_t modulationOf(uint32_t source) {
  return source == AI_INPUT_CABLE ? AI_MODULATION_QAM : AI_MODULATION_8VSB;
}

const char* modulationName(uint32_t source) { return source == AI_INPUT_CABLE ? "qam" : "vsb"; }

const std::vector<RfChannel>& planOf(uint32_t source) {
  // Never destroyed: a scan thread may outlive static objects.
  static const auto& terrestrial = *new std::vector<RfChannel>(expand(kTerrestrial));
  static const auto& cable = *new std::vector<RfChannel>(expand(kCable));
  return source == AI_INPUT_CABLE ? cable : terrestrial;
}

uint8_t rfChannel(uint32_t source, uint32_t frequency) {
  for (const RfChannel& channel : planOf(source))
    if (channel.frequency == frequency) return channel.number;
  return 0;
}

bool isTunable(uint32_t frequency) { return frequency >= 40 * kMHz && frequency <= 1100 * kMHz; }

}  // namespace atschost
