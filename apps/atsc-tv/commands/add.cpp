// atsc-tv add: adds a channel to the list.
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "channels/channel.h"
#include "channels/channel_list.h"
#include "commands/commands.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

struct AddOptions {
  std::string channel;
  std::string source = "VSB";
  uint32_t frequency = 0;  // Hz or RF channel
  std::string name;
};

int add(const CommonOptions& common, const AddOptions& options) {
  const Source& source = sourceNamed(options.source);
  const ChannelNumber number = parseChannelNumber(options.channel).value();
  const std::optional<int64_t> frequency = frequencyOf(source, options.frequency);
  if (!frequency) throw Failure(kUsage, "--freq: " + rfChannelsOf(source));
  const Client client = common.client();
  Json::Value request = command("FW", "CHANNELADD");
  request["src"] = source.name;
  request["major"] = number.major;
  request["minor"] = number.minor;
  request["freq"] = Json::Int64{*frequency};
  request["name"] = validUtf8(options.name);
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "the service cannot add " + options.channel + " at " +
                                megahertz(*frequency) + " MHz; its log says why");
  }
  const std::string database = common.channelDatabase();
  for (const Channel& channel : listedChannels(database, source, number)) {
    if (channel.frequency != *frequency) continue;
    const bool isCut = channel.name.size() < oneLine(validUtf8(options.name)).size();
    std::cout << channelLine(channel) << (isCut ? " (the name was cut)" : "") << "\n  "
              << placeWords(channel) << '\n';
    return kSuccess;
  }
  throw Failure(kFailure, options.channel + " was added, but is not in " + database +
                              "; the channel table could not be written, or " + kSameDatabase);
}

}  // namespace

void addAdd(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("add", "Add a channel to the list by hand");
  command->footer(
      "If the list has a channel with the number and the frequency, that channel gets the name.\n"
      "Channels on several frequencies may have the same number; edit changes the first of them.");
  auto options = std::make_shared<AddOptions>();
  command->add_option("CHANNEL", options->channel, "Channel number like 7-1 or, on cable, 1203")
      ->check(channelNumberFault)
      ->required();
  command
      ->add_option("--freq", options->frequency,
                   "Centre frequency in Hz, or RF channel: VSB 2 to 69, QAM 1 to 135")
      ->check(CLI::Range(uint32_t{1}, std::numeric_limits<uint32_t>::max()))
      ->option_text("N")
      ->required();
  command->add_option("--name", options->name, "Channel name; the service keeps 20 characters")
      ->check([](const std::string& text) { return text.empty() ? "the name is empty" : ""; })
      ->option_text("NAME")
      ->required();
  addSourceOption(*command, options->source, "Terrestrial or cable (default: VSB)");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return add(common, *options); };
  });
}

}  // namespace apps::tv
