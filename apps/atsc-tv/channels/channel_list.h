// The channel list in the service's database.
#ifndef ATSC_TV_CHANNELS_CHANNEL_LIST_H_
#define ATSC_TV_CHANNELS_CHANNEL_LIST_H_

#include <json/value.h>

#include <ostream>
#include <string>

#include "common/source.h"
#include "terminal/failure.h"

namespace apps::tv {

// Returns the rows of a source in channel order as an array of objects with the table's columns, or
// null if the file or the table does not exist. Texts are valid UTF-8. Throws
// std::runtime_error if the file cannot be read.
Json::Value readChannels(const std::string& database, const Source& source);

// Returns the number in a channel's row as users write it: "7-1", or "512" for a one-part number.
std::string channelNumber(const Json::Value& row);

// Prints the rows of readChannels() as a table with a heading.
void printChannels(std::ostream& out, const Source& source, const Json::Value& channels);

// Explains why the service knows a channel that the database does not have.
inline constexpr const char* kSameDatabase = "the service and atsc-tv need the same --db";

// Return the failure for a channel number that a source (empty: any source) does not have, and for
// a database without channels.
Failure noChannel(const std::string& number, const std::string& source);
Failure noChannels(const std::string& database);

}  // namespace apps::tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_LIST_H_
