// atsc-tv parental: shows parental control, switches it and chooses the rating region.
#include "commands/parental.h"

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels/channel.h"
#include "channels/receiver.h"
#include "common/parental.h"
#include "parental/rating_choice.h"
#include "parental/viewing.h"
#include "terminal/failure.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace apps::tv {
namespace {

void setEnabled(const Client& client, bool enabled) {
  Json::Value request = command("PC", "SETPRTDETAIL");
  request["pc_enable"] = enabled ? 1 : 0;
  demand(client, request, "parental control could not be switched");
  if (isParentalEnabled(client) != enabled) {
    throw Failure(kFailure, "parental control could not be switched");
  }
}

void printRegion(const RatingRegion& region, const Parental* groups) {
  Table table({{"Dimension", Align::kLeft}, {"Allowed", Align::kLeft}, {"Blocked", Align::kLeft}});
  for (const RatingDimension& dimension : region.dimensions) {
    table.add({dimension.name, dimension.names(false), dimension.names(true)});
  }
  if (groups != nullptr) {
    const auto names = [&](bool blocked) {
      return unratedGroupNames([&](size_t group) { return groups->groups[group] == blocked; });
    };
    table.add({"Not rated", names(false), names(true)});
  }
  table.print(std::cout, "  ", terminalWidth());
  if (region.dimensions.empty()) {
    std::cout << "  No rating table of this region is known; atsc-tv parental collect looks for "
                 "one\n";
  }
}

int showParental(const CommonOptions& common) {
  const Client client = startClient(common);
  const Parental parental = readParental(client);
  std::cout << "Parental control  "
            << (parental.enabled ? "on" : "off: nothing is blocked until atsc-tv parental on")
            << '\n';
  const char* label = "Rating region     ";
  for (const RatingRegion& region : parental.regions) {
    std::cout << label << region.title() << '\n';
    printRegion(region, &region == &parental.regions.front() ? &parental : nullptr);
    label = "Limits also in    ";
  }
  if (const std::optional<Channel> channel = currentChannel(client)) {
    const ViewingWords words = viewingWords(common, *channel, askViewing(client));
    std::cout << "Now               " << channel->number() << ' ' << channel->name << ": "
              << words.sentence() << words.advice << lockWords(*channel) << '\n';
  }
  return kSuccess;
}

int switchTo(const CommonOptions& common, bool enabled) {
  const Client client = startClient(common);
  setEnabled(client, enabled);
  std::cout << "Parental control is " << (enabled ? "on" : "off") << '\n';
  storeAll(client);
  return kSuccess;
}

int region(const CommonOptions& common, const std::string& wanted) {
  const Client client = startClient(common);
  const std::vector<KnownRegion> regions = knownRegions(client);
  if (!wanted.empty()) {
    std::vector<const KnownRegion*> found = findNamed(regions, wanted);
    for (const KnownRegion& each : regions) {
      if (wanted == std::to_string(each.number)) found = {&each};
    }
    if (found.empty()) {
      std::string known;
      for (const KnownRegion& each : regions) {
        known += (known.empty() ? "" : ", ") + std::to_string(each.number) + ' ' + each.name;
      }
      throw Failure(kFailure, "no rating region '" + wanted + "' is known; there are " + known);
    }
    Json::Value request = command("PC", "SETCURRREG");
    request["region"] = onlyOne(found, wanted).number;
    demand(client, request, "the rating region could not be changed");
  }
  const int inForce = regionInForce(client);
  for (const KnownRegion& each : regions) {
    std::cout << (each.number == inForce ? "* " : "  ") << each.number << ' ' << each.name << '\n';
  }
  if (!wanted.empty()) storeAll(client);
  return kSuccess;
}

int reset(const CommonOptions& common) {
  const Client client = startClient(common);
  demand(client, command("PC", "DEFAULTSETTING"), "the settings could not be reset");
  std::cout << "Parental control is off, without any limits\n";
  storeAll(client);
  return kSuccess;
}

int collect(const CommonOptions& common) {
  const Client client = startClient(common);
  demand(client, command("PC", "COLLECTRRT"),
         "cannot look for rating tables: no channels are listed, or none can be received");
  std::cout
      << "Looking for rating tables on all listed stations; atsc-tv watch reports each new table\n";
  return kSuccess;
}

}  // namespace

Client startClient(const CommonOptions& common) {
  Client client = common.client();
  client.requireService();
  startReceiver(client);
  return client;
}

void demand(const Client& client, const Json::Value& request, const std::string& failure) {
  if (client.send(request).result != 0) throw Failure(kFailure, failure + kSeeLog);
}

void switchOn(const Client& client) {
  if (isParentalEnabled(client)) return;
  setEnabled(client, true);
  std::cout << "Parental control is on now\n";
}

void storeAll(const Client& client) {
  demand(client, command("PC", "STOREALL"),
         "the change is in force, but could not be stored: it ends with the service");
}

CLI::App* addParentalCommand(CLI::App& parental, Action& action, const char* word, const char* help,
                             const Action& run) {
  CLI::App* const command = parental.add_subcommand(word, help);
  command->callback([&action, run] { action = run; });
  return command;
}

void addParental(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "parental",
      "Show parental control: rating region, limits, what is blocked now and why; or change it");
  command->footer(
      "Ratings have the names of the rating table in force (atsc-tv parental shows them), short "
      "or\n"
      "in full; case, blanks, hyphens and full stops do not matter. Each change takes effect at\n"
      "once and is stored.");
  command->require_subcommand(0, 1);
  command->callback([&action] {
    if (!action) action = showParental;
  });
  addParentalCommand(*command, action, "on", "Apply the limits",
                     [](const CommonOptions& common) { return switchTo(common, true); });
  addParentalCommand(*command, action, "off", "Apply no limits, but keep them",
                     [](const CommonOptions& common) { return switchTo(common, false); });

  addParentalLimits(*command, action);

  auto wanted = std::make_shared<std::string>();
  CLI::App* each = addParentalCommand(
      *command, action, "region", "Show the known rating regions, or choose the one in force",
      [wanted](const CommonOptions& common) { return region(common, *wanted); });
  each->add_option("REGION", *wanted, "Number or name of the region, or the beginning of its name");

  addParentalCommand(*command, action, "reset", "Remove all limits, of all regions, and switch off",
                     reset);
  addParentalCommand(*command, action, "collect", "Look for rating tables on all listed stations",
                     collect);
  addParentalCheck(*command, action);
}

}  // namespace apps::tv
