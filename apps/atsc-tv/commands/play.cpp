// atsc-tv play, up, down, stop: change the channel, start and stop playing.
#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "channels/channel.h"
#include "channels/channel_change.h"
#include "channels/channel_list.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "parental/viewing.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

// Ends a sentence about the reason why nothing plays.
constexpr const char* kOrStandby = ", or the receiver is in standby";

constexpr const char* kUp = "up";
constexpr const char* kDown = "down";
constexpr const char* kStop = "stop";

bool isWord(const std::string& text) { return text == kUp || text == kDown || text == kStop; }

struct PlayOptions {
  std::string what;       // a number or one of the words above; empty: the channel that played last
  std::string source;     // empty: the current source
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
  // The channel plays even if the database does not have it.
  if (!row) std::cerr << "atsc-tv: " << notListed(database, channel).what() << '\n';
}

std::string stillOn(const std::optional<Channel>& channel) {
  return channel ? "still on " + channel->number() + ", which atsc-tv play starts again"
                 : "there is no current channel";
}

int tune(const Client& client, const CommonOptions& common, const PlayOptions& options) {
  const std::string database = common.channelDatabase();
  const std::vector<Channel> found = findChannels(client, database, options.what, options.source);
  const auto isDeleted = [](const Channel& channel) { return (channel.flags & kDeleted) != 0; };
  const auto first = std::find_if_not(found.begin(), found.end(), isDeleted);
  const Channel& wanted = first != found.end() ? *first : found.front();
  if (isDeleted(wanted)) {
    throw Failure(kFailure, wanted.number() + " is deleted; atsc-tv edit " + wanted.number() +
                                " --undelete brings it back");
  }
  startReceiver(client);
  // If the wanted frequency does not carry the channel, the receiver plays the same number on
  // another frequency.
  const auto isWanted = [&](const Channel& channel) {
    return channel.source == wanted.source && channel.number() == wanted.number();
  };
  const std::string doesNotPlay =
      wanted.number() + " does not play: the service's log says why" + kOrStandby;
  const Channel* target = &wanted;
  std::optional<Channel> current = listedCurrentChannel(client, database);
  if (current && isWanted(*current)) {
    // A change to the current channel would show no effect. Playing reports its result.
    const bool plays = client.send(command("FW", "PLAY")).result == 0;
    current = currentChannel(client);
    if (plays && current && isWanted(*current)) {
      changeAgain(client, database, *current, options.unlocked);
      print(common, options, *current);
      return kSuccess;
    }
    const auto other = std::find_if(found.begin(), found.end(), [&](const Channel& channel) {
      return !isDeleted(channel) && !(current && channel.isSameAs(*current));
    });
    if (other == found.end()) throw Failure(kFailure, doesNotPlay);
    target = &*other;
  }
  const auto isReached = [&](const Channel& channel) {
    return isWanted(channel) && !(current && channel.isSameAs(*current));
  };
  const std::optional<Channel> reached =
      changeChannel(client, changeRequest(*target, options.unlocked), isReached);
  if (!reached || !isReached(*reached)) {
    throw Failure(kFailure,
                  doesNotPlay + (reached && isWanted(*reached) ? "" : "; " + stillOn(reached)));
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
    throw Failure(kFailure, "no channel to change to: all channels of " + std::string(source.name) +
                                " are hidden, skipped or deleted");
  }
  if (before && walk.size() == 1 && walk.front().isSameAs(*before)) {
    if (client.send(command("FW", "PLAY")).result != 0) {
      throw Failure(kFailure, "there is no other channel than " + before->number() +
                                  ", and its signal is gone" + kOrStandby);
    }
    changeAgain(client, database, *before, options.unlocked);
    print(common, options, *before, " (there is no other channel)");
    return kSuccess;
  }
  Json::Value request = changeRequest(source, options.unlocked);
  request["mode"] = options.what == kUp ? "UP" : "DOWN";
  // The next channel depends on the reception: the receiver skips channels without a carrier.
  const auto isOther = [&](const Channel& channel) {
    return !before || !channel.isSameAs(*before);
  };
  const std::optional<Channel> reached = changeChannel(client, request, isOther);
  if (!reached || !isOther(*reached)) {
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

// Plays the channel that played last on a source.
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
  changeAgain(client, common.channelDatabase(), *reached, options.unlocked);
  print(common, options, *reached);
  return kSuccess;
}

int play(const CommonOptions& common, const PlayOptions& options) {
  const bool byWord = isWord(options.what);
  if (byWord && !options.source.empty()) {
    throw Failure(kUsage, "--src goes with a channel number or alone");
  }
  if (options.unlocked && (options.what.empty() || options.what == kStop)) {
    throw Failure(kUsage, "--unlocked goes with a channel number, up or down");
  }
  const Client client = common.client();
  client.requireService();
  if (options.what == kStop) return stop(client);
  if (options.what.empty()) return resume(client, common, options);
  return byWord ? zap(client, common, options) : tune(client, common, options);
}

void addUnlockedFlag(CLI::App& command, bool& unlocked) {
  command.add_flag("--unlocked", unlocked,
                   "Open a locked channel after the user gave the password. The TV application "
                   "asks for the password; it is never sent");
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
      "play", "Change the channel; without CHANNEL, play the channel that played last (on --src)");
  auto options = std::make_shared<PlayOptions>();
  command->add_option("CHANNEL", options->what, "A number like 7-1 or 1203, or up, down or stop")
      ->check([](const std::string& text) { return isWord(text) ? "" : channelNumberFault(text); });
  addSourceOption(*command, options->source,
                  "Terrestrial or cable (default for a number: the current source, else the other "
                  "source if it has the number)");
  addUnlockedFlag(*command, options->unlocked);
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return play(common, *options); };
  });
}

void addUp(CLI::App& app, Action& action) {
  addZap(app, action, kUp, "Change to the next channel of the current source, like play up");
}

void addDown(CLI::App& app, Action& action) {
  addZap(app, action, kDown,
         "Change to the previous channel of the current source, like play down");
}

void addStop(CLI::App& app, Action& action) {
  addWord(app, action, kStop, "Stop playing, like play stop", std::make_shared<PlayOptions>());
}

}  // namespace apps::tv
