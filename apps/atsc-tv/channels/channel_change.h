// Changes of the current channel. The service only queues them, so that their end shows in the
// current channel alone.
#ifndef ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_
#define ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_

#include <functional>
#include <optional>
#include <string>

#include "channels/channel.h"
#include "service/client.h"

namespace tv {

// Returns the request to change to a channel by its number. `unlocked`: the password was given.
Json::Value changeRequest(const Channel& channel, bool unlocked);

// Returns the same for a source, without a number.
Json::Value changeRequest(const Source& source, bool unlocked);

// Sends a channel change and waits until the current channel is a wanted one. Returns the current
// channel in any case. Throws Failure when the service refuses the change.
std::optional<Channel> changeChannel(const Client& client, const Json::Value& request,
                                     const std::function<bool(const Channel&)>& wanted);

// Changes to the current channel, which plays. Playing alone neither reports a password nor makes
// the channel the one last changed to, which is the only one that can be unlocked.
void changeAgain(const Client& client, const std::string& database, const Channel& current,
                 bool unlocked);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_CHANNEL_CHANGE_H_
