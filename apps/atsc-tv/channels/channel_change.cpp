#include "channels/channel_change.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "channels/receiver.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

using Clock = std::chrono::steady_clock;

// The command only queues a channel change. A successful change ends within this time.
constexpr std::chrono::seconds kPatience(5);

// Intervals between queries grow: most changes end soon, and the service logs each query.
constexpr std::chrono::milliseconds kFirstPause(20);
constexpr std::chrono::milliseconds kLongestPause(250);

// The service begins a channel change within this time. Nothing reports when it begins.
constexpr std::chrono::milliseconds kTakenUp(300);

}  // namespace

Json::Value changeRequest(const Source& source, bool unlocked) {
  Json::Value request = command("FW", "CHANNELCHANGE");
  request["input"] = source.name;
  if (unlocked) request["password_reqd"] = false;
  return request;
}

Json::Value changeRequest(const Channel& channel, bool unlocked) {
  Json::Value request = changeRequest(*channel.source, unlocked);
  request["major"] = Json::Int64{channel.major};
  request["minor"] = Json::Int64{channel.minor};
  request["service_record"] = Json::Int64{channel.serviceRecord};
  return request;
}

std::optional<Channel> changeChannel(const Client& client, const Json::Value& request,
                                     const std::function<bool(const Channel&)>& wanted) {
  // A verbose client would show every query and hide the messages that matter.
  const Client quiet(false);
  const Json::Value before = askCurrent(quiet);
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "the service refuses the channel change");
  }
  const Clock::time_point end = Clock::now() + kPatience;
  for (auto pause = kFirstPause; Clock::now() < end; pause = std::min(2 * pause, kLongestPause)) {
    std::this_thread::sleep_for(pause);
    const Json::Value reply = askCurrent(quiet);
    if (reply == before) continue;
    const std::optional<Channel> channel = currentChannel(quiet, reply);
    if (channel && wanted(*channel)) break;
  }
  return currentChannel(client);
}

void changeAgain(const Client& client, const std::string& database, const Channel& current,
                 bool unlocked) {
  const Channel channel = listed(database, current).value_or(current);
  if (client.send(changeRequest(channel, unlocked)).result != 0) {
    throw Failure(kFailure, "the service refuses the change to " + channel.number());
  }
  std::this_thread::sleep_for(kTakenUp);
}

}  // namespace apps::tv
