// What the receiver is set to, as the service tells it.
#ifndef ATSC_TV_CHANNELS_RECEIVER_H_
#define ATSC_TV_CHANNELS_RECEIVER_H_

#include <optional>
#include <string>
#include <vector>

#include "channels/channel.h"
#include "service/client.h"
#include "terminal/failure.h"

namespace tv {

// Has the service start its receiver, which does no harm where it runs. Throws Failure.
void startReceiver(const Client& client);

// The current source.
const Source& currentSource(const Client& client);

// The service's answer about the current channel.
Json::Value askCurrent(const Client& client);

// The current channel, without what only the channel list has; nothing when there is none. The
// service is asked for its source alone where its answer is given.
std::optional<Channel> currentChannel(const Client& client);
std::optional<Channel> currentChannel(const Client& client, const Json::Value& reply);

// That channel as the channel list has it; nothing when it lacks it.
std::optional<Channel> listed(const std::string& database, const Channel& current);

// Both in one; nothing when there is no current channel. Throws notListed().
std::optional<Channel> listedCurrentChannel(const Client& client, const std::string& database);

// What a subcommand throws when the channel list lacks the current channel.
Failure notListed(const std::string& database, const Channel& current);

// The listed channels of a number, at least one: on the source with this name or, when it is empty,
// on the current source, else on the other one. Throws Failure when it is not listed.
std::vector<Channel> findChannels(const Client& client, const std::string& database,
                                  const std::string& number, const std::string& source);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_RECEIVER_H_
