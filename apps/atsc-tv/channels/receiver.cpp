#include "channels/receiver.h"

#include "channels/channel_list.h"
#include "common/json.h"
#include "terminal/text.h"

namespace apps::tv {

void startReceiver(const Client& client) {
  if (client.send(command("FW", "INIT")).result != 0) {
    throw Failure(kFailure, "the service cannot start its receiver");
  }
}

const Source& currentSource(const Client& client) {
  const Json::Value reply = client.ask(command("CN", "GETCURSRC"));
  return sourceNamed(reply["src"] == "QAM" ? "QAM" : "VSB");
}

Json::Value askCurrent(const Client& client) { return client.ask(command("SRV", "GETCUR")); }

std::optional<Channel> currentChannel(const Client& client) {
  return currentChannel(client, askCurrent(client));
}

std::optional<Channel> currentChannel(const Client& client, const Json::Value& reply) {
  constexpr int64_t kNoRow = 0xFFFF;
  if (integer(reply, "srv_rec") == kNoRow) return std::nullopt;
  Channel channel;
  channel.source = &currentSource(client);
  channel.major = integer(reply, "major");
  channel.minor = integer(reply, "minor");
  channel.frequency = integer(reply, "freq");
  channel.name = reply["chn_name"].isString() ? oneLine(reply["chn_name"].asString()) : "";
  channel.flags = integer(reply, "srv_flag");
  channel.favourites = integer(reply, "fav_group");
  return channel;
}

std::optional<Channel> listed(const std::string& database, const Channel& current) {
  const ChannelNumber number = {static_cast<uint16_t>(current.major),
                                static_cast<uint16_t>(current.minor)};
  // The receiver may have changed to the other source after it reported the channel and before it
  // reported the source.
  const Source& other = &kSources[0] == current.source ? kSources[1] : kSources[0];
  for (const Source* source : {current.source, &other}) {
    for (const Channel& channel : listedChannels(database, *source, number)) {
      if (channel.key() == current.key()) return channel;
    }
  }
  return std::nullopt;
}

std::optional<Channel> listedCurrentChannel(const Client& client, const std::string& database) {
  const std::optional<Channel> current = currentChannel(client);
  if (!current) return std::nullopt;
  std::optional<Channel> channel = listed(database, *current);
  if (!channel) throw notListed(database, *current);
  return channel;
}

Failure notListed(const std::string& database, const Channel& current) {
  return Failure(kFailure, "the current channel " + current.number() + " is not in " + database +
                               "; " + kSameDatabase);
}

std::vector<Channel> findChannels(const Client& client, const std::string& database,
                                  const std::string& number, const std::string& source) {
  const std::optional<ChannelNumber> wanted = parseChannelNumber(number);
  if (!wanted) throw Failure(kUsage, channelNumberFault(number));
  const Source& first = source.empty() ? currentSource(client) : sourceNamed(source);
  std::vector<Channel> found = listedChannels(database, first, *wanted);
  for (const Source& other : kSources) {
    if (found.empty() && source.empty()) found = listedChannels(database, other, *wanted);
  }
  if (found.empty()) {
    listedCurrentChannel(client, database);
    throw hasChannels(database) ? noChannel(number, source) : noChannels(database);
  }
  return found;
}

}  // namespace apps::tv
