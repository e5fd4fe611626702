// Changes the channel. The service queues a change and does not report its end; the end shows only
// in the current channel.
#ifndef ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_
#define ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_

#include <functional>
#include <optional>
#include <string>

#include "channels/channel.h"
#include "service/client.h"

namespace apps::tv {

// Returns the request to change to a channel by its number. Set `unlocked` after the user gave the
// password.
Json::Value changeRequest(const Channel& channel, bool unlocked);

// Returns the request to change to a channel of a source; the caller adds a number or a direction.
Json::Value changeRequest(const Source& source, bool unlocked);

// Sends a channel change and waits until `wanted` accepts the current channel. Returns the current
// channel, accepted or not. Throws Failure if the service refuses the change.
std::optional<Channel> changeChannel(const Client& client, const Json::Value& request,
                                     const std::function<bool(const Channel&)>& wanted);

// Changes to the current channel, which is playing already. The service unlocks only the channel of
// the last CHANNELCHANGE. `PLAY` does not count as a change and cannot report a password, so this
// sends CHANNELCHANGE again.
void changeAgain(const Client& client, const std::string& database, const Channel& current,
                 bool unlocked);

}  // namespace apps::tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_
