// What the receiver is set to, as the service tells it.
#ifndef ATSC_TV_RECEIVER_H_
#define ATSC_TV_RECEIVER_H_

#include <optional>
#include <string>
#include <vector>

#include "channel.h"
#include "client.h"

namespace tv {

// Has the service start its receiver, which does no harm where it runs. Throws Failure.
void startReceiver(const Client& client);

// The current source.
const Source& currentSource(const Client& client);

// The current channel, without its audio tracks; nothing when there is none.
std::optional<Channel> currentChannel(const Client& client);

// The same with all that the channel list has of it.
std::optional<Channel> currentChannel(const Client& client, const std::string& database);

// The listed channels of a number, at least one: on the source with this name or, when it is empty,
// on the current source, else on the other one. Throws Failure when it is not listed.
std::vector<Channel> findChannels(const Client& client, const std::string& database,
                                  const std::string& number, const std::string& source);

}  // namespace tv

#endif  // ATSC_TV_RECEIVER_H_
