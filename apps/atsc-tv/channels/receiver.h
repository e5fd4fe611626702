// The source and channel that the receiver is set to, which the service reports.
#ifndef ATSC_TV_CHANNELS_RECEIVER_H_
#define ATSC_TV_CHANNELS_RECEIVER_H_

#include <optional>
#include <string>
#include <vector>

#include "channels/channel.h"
#include "service/client.h"
#include "terminal/failure.h"

namespace apps::tv {

// Makes the service start its receiver; does nothing if the receiver has started already. Throws
// Failure.
void startReceiver(const Client& client);

// Returns the current source.
const Source& currentSource(const Client& client);

// Returns the service's reply to a query for the current channel.
Json::Value askCurrent(const Client& client);

// Return the current channel without the members that only the channel list has, or nothing if
// there is no current channel. Given the reply of askCurrent(), the second one queries the service
// only for the source.
std::optional<Channel> currentChannel(const Client& client);
std::optional<Channel> currentChannel(const Client& client, const Json::Value& reply);

// Returns the current channel with the members from the channel list, or nothing if the channel
// list does not have the channel.
std::optional<Channel> listed(const std::string& database, const Channel& current);

// Returns listed(currentChannel()), or nothing if there is no current channel. Throws notListed().
std::optional<Channel> listedCurrentChannel(const Client& client, const std::string& database);

// Returns the failure for a current channel that the channel list does not have.
Failure notListed(const std::string& database, const Channel& current);

// Returns the listed channels with a number, at least one. Searches the source with this name; for
// an empty name, the current source and then the other one. Throws Failure if there is no such
// channel.
std::vector<Channel> findChannels(const Client& client, const std::string& database,
                                  const std::string& number, const std::string& source);

}  // namespace apps::tv

#endif  // ATSC_TV_CHANNELS_RECEIVER_H_
