// atsc-tv channels: prints the channel list of the database.
#include <iostream>
#include <memory>

#include "channels/channel_list.h"
#include "commands/commands.h"
#include "common/json.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

struct ChannelsOptions {
  std::string source;  // empty: all
  bool json = false;
};

int channels(const CommonOptions& common, const ChannelsOptions& options) {
  const std::string database = common.channelDatabase();
  Json::Value all(Json::objectValue);
  bool scanned = false;
  const char* gap = "";
  for (const Source& source : kSources) {
    if (!options.source.empty() && options.source != source.name) continue;
    const Json::Value rows = readChannels(database, source);
    scanned = scanned || !rows.isNull();
    all[source.name] = rows;
    if (options.json || rows.isNull()) continue;
    std::cout << gap;
    printChannels(std::cout, source, rows);
    gap = "\n";
  }
  if (options.json) {
    std::cout << compactJson(all) << '\n';
  } else if (!scanned) {
    throw noChannels(database);
  }
  return kSuccess;
}

}  // namespace

void addChannels(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("channels", "Show the channel list");
  auto options = std::make_shared<ChannelsOptions>();
  addSourceOption(*command, options->source, "Show only terrestrial or only cable channels");
  command->add_flag("--json", options->json,
                    "Print one line of JSON: for each source the rows of its table, null if the "
                    "database has no such table");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return channels(common, *options); };
  });
}

}  // namespace apps::tv
