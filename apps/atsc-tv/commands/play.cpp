// atsc-tv play, up, down, stop: what plays.
#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "channels/channel.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "parental/viewing.h"
#include "terminal/failure.h"

namespace tv {
namespace {

using Clock = std::chrono::steady_clock;

// A channel change is only queued by its command and ends within this time, if it succeeds.
constexpr std::chrono::seconds kPatience(5);

// The service is asked in growing intervals: most changes end soon, and each question is logged.
constexpr std::chrono::milliseconds kFirstPause(20);
constexpr std::chrono::milliseconds kLongestPause(250);

// The service takes a channel change up within this time, and nothing tells when.
constexpr std::chrono::milliseconds kTakenUp(300);

// The end of a sentence that says why something does not play.
constexpr const char* kOrStandby = ", or the receiver is in standby";

constexpr const char* kUp = "up";
constexpr const char* kDown = "down";
constexpr const char* kStop = "stop";

bool isWord(const std::string& text) { return text == kUp || text == kDown || text == kStop; }

struct PlayOptions {
  std::string what;       // a number or one of the words above; empty: what played last
  std::string source;     // empty: the current one
  bool unlocked = false;  // the password was given
};

void print(const CommonOptions& common, const PlayOptions& options, const Channel& channel,
           const char* remark = "") {
  const std::string database = common.channelDatabase();
  const std::optional<Channel> row = listed(database, channel);
  std::cout << channel.number() << ' ' << channel.name << remark << (row ? streamRemark(*row) : "")
            << '\n';
  if ((channel.flags & kLocked) != 0 && !options.unlocked) {
    std::cout << "  locked; atsc-tv play " << channel.number() << " --unlocked opens it\n";
  }
  if (const Viewing viewing = askFirstViewing(common, channel); viewing != Viewing::kAllowed) {
    const ViewingWords words = viewingWords(common, channel, viewing);
    std::cout << "  " << words.sentence() << words.advice << '\n';
  }
  // It plays all the same.
  if (!row) std::cerr << "atsc-tv: " << notListed(database, channel).what() << '\n';
}

std::string stillOn(const std::optional<Channel>& channel) {
  return channel ? "still on " + channel->number() + ", which atsc-tv play starts again"
                 : "there is no current channel";
}

// Sends a channel change and waits until the current channel is a wanted one; gives the current
// channel in any case.
std::optional<Channel> change(const Client& client, const Json::Value& request,
                              const std::function<bool(const Channel&)>& wanted) {
  // All these questions would only hide the texts that matter.
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

Json::Value changeRequest(const Source& source, const PlayOptions& options) {
  Json::Value request = command("FW", "CHANNELCHANGE");
  request["input"] = source.name;
  if (options.unlocked) request["password_reqd"] = false;
  return request;
}

// Changes to a channel by its number.
Json::Value changeRequest(const Channel& channel, const PlayOptions& options) {
  Json::Value request = changeRequest(*channel.source, options);
  request["major"] = Json::Int64{channel.major};
  request["minor"] = Json::Int64{channel.minor};
  request["service_record"] = Json::Int64{channel.service_record};
  return request;
}

// Changes to the current channel, which plays. Playing alone neither tells of a password nor makes
// it the channel last changed to, the only one that can be unlocked.
void changeAgain(const Client& client, const CommonOptions& common, const Channel& current,
                 const PlayOptions& options) {
  const Channel channel = listed(common.channelDatabase(), current).value_or(current);
  if (client.send(changeRequest(channel, options)).result != 0) {
    throw Failure(kFailure, "the service refuses the change to " + channel.number());
  }
  std::this_thread::sleep_for(kTakenUp);
}

int tune(const Client& client, const CommonOptions& common, const PlayOptions& options) {
  const std::string database = common.channelDatabase();
  const std::vector<Channel> found = findChannels(client, database, options.what, options.source);
  const auto is_deleted = [](const Channel& channel) { return (channel.flags & kDeleted) != 0; };
  const auto first = std::find_if_not(found.begin(), found.end(), is_deleted);
  const Channel& wanted = first != found.end() ? *first : found.front();
  if (is_deleted(wanted)) {
    throw Failure(kFailure, wanted.number() + " is deleted; atsc-tv edit " + wanted.number() +
                                " --undelete brings it back");
  }
  startReceiver(client);
  // Where one frequency does not carry it, the receiver takes another one that has the number.
  const auto is_wanted = [&](const Channel& channel) {
    return channel.source == wanted.source && channel.number() == wanted.number();
  };
  const std::string does_not_play =
      wanted.number() + " does not play: the service's log says why" + kOrStandby;
  const Channel* target = &wanted;
  std::optional<Channel> current = listedCurrentChannel(client, database);
  if (current && is_wanted(*current)) {
    // A change to it would not be seen; the result of this is told.
    const bool plays = client.send(command("FW", "PLAY")).result == 0;
    current = currentChannel(client);
    if (plays && current && is_wanted(*current)) {
      changeAgain(client, common, *current, options);
      print(common, options, *current);
      return kSuccess;
    }
    const auto other = std::find_if(found.begin(), found.end(), [&](const Channel& channel) {
      return !is_deleted(channel) && !(current && channel.isSameAs(*current));
    });
    if (other == found.end()) throw Failure(kFailure, does_not_play);
    target = &*other;
  }
  const auto is_reached = [&](const Channel& channel) {
    return is_wanted(channel) && !(current && channel.isSameAs(*current));
  };
  const std::optional<Channel> reached =
      change(client, changeRequest(*target, options), is_reached);
  if (!reached || !is_reached(*reached)) {
    throw Failure(kFailure,
                  does_not_play + (reached && is_wanted(*reached) ? "" : "; " + stillOn(reached)));
  }
  print(common, options, *reached);
  return kSuccess;
}

int zap(const Client& client, const CommonOptions& common, const PlayOptions& options) {
  const std::string database = common.channelDatabase();
  startReceiver(client);
  const std::optional<Channel> before = listedCurrentChannel(client, database);
  if (!hasChannels(database)) throw noChannels(database);
  const Source& source = currentSource(client);
  std::vector<Channel> walk = listedChannels(database, source);
  walk.erase(std::remove_if(walk.begin(), walk.end(),
                            [](const Channel& channel) {
                              return (channel.flags & kVisible) == 0 ||
                                     (channel.flags & (kSkipped | kDeleted)) != 0;
                            }),
             walk.end());
  if (walk.empty()) {
    throw Failure(kFailure, "no channel to change to: none of " + std::string(source.name) +
                                " is listed that is neither skipped nor deleted");
  }
  if (before && walk.size() == 1 && walk.front().isSameAs(*before)) {
    if (client.send(command("FW", "PLAY")).result != 0) {
      throw Failure(kFailure, "there is no other channel than " + before->number() +
                                  ", and its signal is gone" + kOrStandby);
    }
    changeAgain(client, common, *before, options);
    print(common, options, *before, " (there is no other channel)");
    return kSuccess;
  }
  Json::Value request = changeRequest(source, options);
  request["mode"] = options.what == kUp ? "UP" : "DOWN";
  // Which one comes next depends on what is received: channels without a carrier are passed over.
  const auto is_other = [&](const Channel& channel) {
    return !before || !channel.isSameAs(*before);
  };
  const std::optional<Channel> reached = change(client, request, is_other);
  if (!reached || !is_other(*reached)) {
    throw Failure(kFailure, std::string("no other channel plays: none has a signal") + kOrStandby +
                                "; " + stillOn(reached));
  }
  print(common, options, *reached);
  return kSuccess;
}

int stop(const Client& client) {
  startReceiver(client);
  if (client.send(command("FW", "STOP")).result != 0) {
    throw Failure(kFailure, "the service cannot stop playing");
  }
  std::cout << "Stopped\n";
  return kSuccess;
}

// Plays what played last on a source.
int resume(const Client& client, const CommonOptions& common, const PlayOptions& options) {
  const std::string& source = options.source;
  startReceiver(client);
  Json::Value request = command("FW", source.empty() ? "PLAY" : "PLAYSRC");
  if (!source.empty()) request["src"] = source;
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "nothing to play" + (source.empty() ? "" : " on " + source) +
                                ": no channel is listed, its signal is gone" + kOrStandby);
  }
  const std::optional<Channel> reached = currentChannel(client);
  if (!reached) throw Failure(kFailure, "there is no current channel");
  changeAgain(client, common, *reached, options);
  print(common, options, *reached);
  return kSuccess;
}

int play(const CommonOptions& common, const PlayOptions& options) {
  const bool is_word = isWord(options.what);
  if (is_word && !options.source.empty()) {
    throw Failure(kUsage, "--src goes with a channel number or alone");
  }
  if (options.unlocked && (options.what.empty() || options.what == kStop)) {
    throw Failure(kUsage, "--unlocked goes with a channel number, up or down");
  }
  const Client client = common.client();
  client.requireService();
  if (options.what == kStop) return stop(client);
  if (options.what.empty()) return resume(client, common, options);
  return is_word ? zap(client, common, options) : tune(client, common, options);
}

void addUnlockedFlag(CLI::App& command, bool& unlocked) {
  command.add_flag("--unlocked", unlocked,
                   "The password was given: a locked channel opens. The password itself is never "
                   "sent; to ask for it is for the TV application");
}

CLI::App* addWord(CLI::App& app, Action& action, const char* word, const std::string& help,
                  const std::shared_ptr<PlayOptions>& options) {
  options->what = word;
  CLI::App* command = app.add_subcommand(word, help);
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return play(common, *options); };
  });
  return command;
}

void addZap(CLI::App& app, Action& action, const char* word, const std::string& help) {
  auto options = std::make_shared<PlayOptions>();
  addUnlockedFlag(*addWord(app, action, word, help, options), options->unlocked);
}

}  // namespace

void addPlay(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "play", "Change the channel; without one, play what played last (on --src)");
  auto options = std::make_shared<PlayOptions>();
  command->add_option("CHANNEL", options->what, "A number like 7-1 or 1203, or up, down or stop")
      ->check([](const std::string& text) { return isWord(text) ? "" : channelNumberFault(text); });
  addSourceOption(*command, options->source,
                  "Terrestrial or cable (default for a number: the current source, else the other "
                  "one if that has it)");
  addUnlockedFlag(*command, options->unlocked);
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return play(common, *options); };
  });
}

void addUp(CLI::App& app, Action& action) {
  addZap(app, action, kUp, "The next channel of the current source, as play up");
}

void addDown(CLI::App& app, Action& action) {
  addZap(app, action, kDown, "The previous channel of the current source, as play down");
}

void addStop(CLI::App& app, Action& action) {
  addWord(app, action, kStop, "Stop playing, as play stop", std::make_shared<PlayOptions>());
}

}  // namespace tv
