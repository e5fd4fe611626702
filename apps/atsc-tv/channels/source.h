// Reception sources and their frequency plans.
#ifndef ATSC_TV_CHANNELS_SOURCE_H_
#define ATSC_TV_CHANNELS_SOURCE_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace tv {

// A reception source with its tables and its frequency plan.
struct Source {
  const char* name;        // as in commands
  const char* title;       // for people
  const char* table;       // of channels
  const char* eventTable;  // of programmes
  const int32_t* plan;     // centre frequencies in Hz, ended by -1
  int firstChannel;        // RF channel of the plan's first frequency
};

extern const std::array<Source, 2> kSources;

// The source of a name that a command-line option has checked.
const Source& sourceNamed(const std::string& name);

// The RF channel of a centre frequency in Hz, 0 when the plan has none.
int rfChannel(const Source& source, int64_t frequency);

// The frequency in Hz that a number on a command line means, which is one in Hz or an RF channel;
// nothing when the plan has no such channel.
std::optional<int64_t> frequencyOf(const Source& source, int64_t number);

// Which RF channels there are, for a message.
std::string rfChannelsOf(const Source& source);

// A centre frequency in Hz as text in MHz.
std::string megahertz(int64_t frequency);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_SOURCE_H_
