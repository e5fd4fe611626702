// atsc-tv edit: changes the marks of a channel.
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "channels/channel.h"
#include "channels/channel_list.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

// A change without parameters, and its opposite.
struct Mark {
  int64_t flag;      // ChannelFlag
  const char* type;  // as in the command
  const char* opposite;
  const char* help;
  const char* oppositeHelp;
};
constexpr Mark kMarks[] = {
    {kSkipped, "skip", "unskip", "Skip the channel with up and down", "Do not skip the channel"},
    {kLocked, "lock", "unlock", "Lock the channel: it stays closed until atsc-tv play --unlocked",
     "Do not lock the channel"},
    {kDeleted, "delete", "undelete", "Remove the channel from the viewer's list",
     "Restore the channel"},
};

struct EditOptions {
  std::string channel;
  std::string source;  // empty: the current source, else the other one
  bool marks[std::size(kMarks)] = {};
  bool opposites[std::size(kMarks)] = {};
  std::vector<uint32_t> favourites;
  std::vector<uint32_t> noFavourites;
};

std::vector<Json::Value> changesOf(const EditOptions& options) {
  std::vector<Json::Value> changes;
  const auto add = [&](const char* type, uint32_t group) {
    Json::Value& change = changes.emplace_back(command("FW", "CHANNELMODIFY"));
    change["type"] = type;
    if (group != 0) change["group"] = group;
  };
  for (size_t i = 0; i < std::size(kMarks); ++i) {
    if (options.marks[i]) add(kMarks[i].type, 0);
    if (options.opposites[i]) add(kMarks[i].opposite, 0);
  }
  for (const uint32_t group : options.favourites) add("fav", group);
  for (const uint32_t group : options.noFavourites) add("unfav", group);
  return changes;
}

// Returns whether the channel has the requested marks.
bool hasMarks(const Channel& channel, const EditOptions& options) {
  for (size_t i = 0; i < std::size(kMarks); ++i) {
    const bool marked = (channel.flags & kMarks[i].flag) != 0;
    if (marked ? options.opposites[i] : options.marks[i]) return false;
  }
  // A group that is both added and removed ends up removed: the service receives the removals last.
  int64_t given = 0;
  int64_t taken = 0;
  for (const uint32_t group : options.favourites) given |= favouriteBit(group);
  for (const uint32_t group : options.noFavourites) taken |= favouriteBit(group);
  return (channel.favourites & (given | taken)) == (given & ~taken);
}

int edit(const CommonOptions& common, const EditOptions& options) {
  std::vector<Json::Value> changes = changesOf(options);
  if (changes.empty()) {
    throw Failure(kUsage, "nothing to change; atsc-tv edit --help lists what can be changed");
  }
  const Client client = common.client();
  client.requireService();
  const std::string database = common.channelDatabase();
  // The service, too, changes the first of several channels with the number.
  const Channel channel = findChannels(client, database, options.channel, options.source).front();
  listedCurrentChannel(client, database);
  for (Json::Value& change : changes) {
    change["src"] = channel.source->name;
    change["major"] = Json::Int64{channel.major};
    change["minor"] = Json::Int64{channel.minor};
    if (client.send(change).result != 0) {
      throw Failure(kFailure, channel.number() + " could not be changed (" +
                                  change["type"].asString() + "); the service's log says why");
    }
  }
  const Channel changed =
      findChannels(client, database, options.channel, channel.source->name).front();
  if (!hasMarks(changed, options)) {
    throw Failure(kFailure, channel.number() + " was changed, but not in " + database +
                                "; the channel table could not be written, or " + kSameDatabase);
  }
  std::cout << channelLine(changed) << '\n';
  return kSuccess;
}

}  // namespace

void addEdit(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("edit", "Mark a channel as skipped, locked, deleted or a favourite");
  auto options = std::make_shared<EditOptions>();
  command
      ->add_option(
          "CHANNEL", options->channel,
          "A number like 7-1 or 1203; the first of several channels with that number is changed")
      ->check(channelNumberFault)
      ->required();
  addSourceOption(*command, options->source,
                  "Terrestrial or cable (default: the current source, else the other source if it "
                  "has the number)");
  const auto option = [](const char* name) { return std::string("--") + name; };
  for (size_t i = 0; i < std::size(kMarks); ++i) {
    const Mark& mark = kMarks[i];
    const auto help = [&](const char* text, const char* other) {
      return text + std::string("; not together with ") + option(other);
    };
    CLI::Option* set =
        command->add_flag(option(mark.type), options->marks[i], help(mark.help, mark.opposite));
    command
        ->add_flag(option(mark.opposite), options->opposites[i], help(mark.oppositeHelp, mark.type))
        ->excludes(set);
  }
  const auto addGroup = [&](const char* name, std::vector<uint32_t>& groups, const char* help) {
    command->add_option(name, groups, help)
        ->check(CLI::Range(uint32_t{1}, kFavouriteGroups))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->option_text("N");
  };
  addGroup("--fav", options->favourites, "Add the channel to favourite group N, 1 to 28");
  addGroup("--unfav", options->noFavourites, "Remove the channel from favourite group N");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return edit(common, *options); };
  });
}

}  // namespace apps::tv
