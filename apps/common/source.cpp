#include "common/source.h"

#include <atsc/atsc_tables.h>

#include <cstdio>

namespace apps {
namespace {

constexpr int64_t kMegahertz = 1000000;

// Numbers below this one are RF channels, as in the service's commands.
constexpr int64_t kRfChannels = 256;

// Returns the RF channel of the plan's last frequency.
int lastRfChannel(const Source& source) {
  int channel = source.firstChannel;
  while (source.plan[channel - source.firstChannel] != -1) ++channel;
  return channel - 1;
}

}  // namespace

const std::array<Source, 2> kSources = {{
    {"VSB", "Terrestrial", "channel_data_t", "event_t", atsc_freq, 2},
    {"QAM", "Cable", "channel_data_c", "event_c", cable_digital_std, 1},
}};

const Source& sourceNamed(const std::string& name) {
  return name == kSources[0].name ? kSources[0] : kSources[1];
}

int rfChannel(const Source& source, int64_t frequency) {
  for (int i = 0; source.plan[i] != -1; ++i) {
    if (source.plan[i] == frequency) return source.firstChannel + i;
  }
  return 0;
}

std::optional<int64_t> frequencyOf(const Source& source, int64_t number) {
  const int first = source.firstChannel;
  if (number >= kRfChannels) return number;
  if (number < first || number > lastRfChannel(source)) return std::nullopt;
  return source.plan[number - first];
}

std::string rfChannelsOf(const Source& source) {
  return "the RF channels of " + std::string(source.name) + " are " +
         std::to_string(source.firstChannel) + " to " + std::to_string(lastRfChannel(source));
}

std::string megahertz(int64_t frequency) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), "%lld.%03lld", static_cast<long long>(frequency / kMegahertz),
           static_cast<long long>(frequency % kMegahertz / 1000));
  return text.data();
}

}  // namespace apps
