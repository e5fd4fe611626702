// The channel list that the service keeps.
#ifndef ATSC_TV_CHANNELS_CHANNEL_LIST_H_
#define ATSC_TV_CHANNELS_CHANNEL_LIST_H_

#include <json/value.h>

#include <ostream>
#include <string>

#include "channels/source.h"
#include "terminal/failure.h"

namespace tv {

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
