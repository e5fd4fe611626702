#include "receiver.h"

#include "failure.h"
#include "rows.h"
#include "text.h"

namespace tv {

void startReceiver(const Client& client) {
  if (client.send(command("FW", "INIT")).result != 0) {
    throw Failure(kFailure, "the service cannot start its receiver");
  }
}

const Source& currentSource(const Client& client) {
  const Json::Value reply = client.ask(command("CN", "GETCURSRC"));
  return sourceNamed(reply["src"] == "QAM" ? "QAM" : "VSB");
}

std::optional<Channel> currentChannel(const Client& client) {
  constexpr int64_t kNoRow = 0xFFFF;
  const Json::Value reply = client.ask(command("SRV", "GETCUR"));
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

std::optional<Channel> currentChannel(const Client& client, const std::string& database) {
  const std::optional<Channel> current = currentChannel(client);
  if (!current) return current;
  const ChannelNumber number = {static_cast<uint16_t>(current->major),
                                static_cast<uint16_t>(current->minor)};
  for (const Channel& channel : listedChannels(database, *current->source, number)) {
    if (channel.isSameAs(*current)) return channel;
  }
  return current;
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
  if (found.empty()) throw noChannel(number);
  return found;
}

}  // namespace tv
