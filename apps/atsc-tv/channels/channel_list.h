// The channel list that the service keeps.
#ifndef ATSC_TV_CHANNELS_CHANNEL_LIST_H_
#define ATSC_TV_CHANNELS_CHANNEL_LIST_H_

#include <json/value.h>

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "terminal/failure.h"

namespace tv {

// A reception source with its tables and its frequency plan.
struct Source {
  const char* name;         // as in commands
  const char* title;        // for people
  const char* table;        // of channels
  const char* event_table;  // of programmes
  const int32_t* plan;      // centre frequencies in Hz, ended by -1
  int first_channel;        // RF channel of the plan's first frequency
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

// The rows of a source in channel order, an array of objects with the table's columns; null when
// the file or the table does not exist. Texts are valid UTF-8. Throws when the file cannot be read.
Json::Value readChannels(const std::string& database, const Source& source);

// The number of a channel's row as people write it: "7-1", or "512" where it has one part.
std::string channelNumber(const Json::Value& row);

// Writes the rows of readChannels() as a table with a heading.
void printChannels(std::ostream& out, const Source& source, const Json::Value& channels);

// The reason why the service knows more channels than the database has.
inline constexpr const char* kSameDatabase = "the service and atsc-tv need the same --db";

// What a subcommand throws that finds no channel with a number on a source (empty: on any), or none
// at all, in the database.
Failure noChannel(const std::string& number, const std::string& source);
Failure noChannels(const std::string& database);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_LIST_H_
