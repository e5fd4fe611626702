// Reception sources and their frequency plans.
#ifndef ATSC_APPS_COMMON_SOURCE_H_
#define ATSC_APPS_COMMON_SOURCE_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace apps {

// A reception source, its tables and its frequency plan.
struct Source {
  const char* name;        // the name in commands
  const char* title;       // the name for users
  const char* table;       // the channel table
  const char* eventTable;  // the event table
  const int32_t* plan;     // centre frequencies in Hz, terminated by -1
  int firstChannel;        // the RF channel of the plan's first frequency
};

extern const std::array<Source, 2> kSources;

// Returns the source with this name, which has been checked before.
const Source& sourceNamed(const std::string& name);

// Returns the RF channel of a centre frequency in Hz, 0 if the plan does not have the frequency.
int rfChannel(const Source& source, int64_t frequency);

// Returns the frequency in Hz that a number on the command line means: a frequency in Hz or an RF
// channel. Returns nothing if the plan does not have the RF channel.
std::optional<int64_t> frequencyOf(const Source& source, int64_t number);

// Returns a message about the range of RF channels.
std::string rfChannelsOf(const Source& source);

// Formats a frequency in Hz as a number of MHz.
std::string megahertz(int64_t frequency);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_SOURCE_H_
