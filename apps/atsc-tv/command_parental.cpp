// atsc-tv parental: who may watch what.
#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "channel.h"
#include "commands.h"
#include "failure.h"
#include "parental.h"
#include "receiver.h"
#include "table.h"
#include "terminal.h"
#include "text.h"
#include "viewing.h"

namespace tv {
namespace {

constexpr const char* kNone = "none";
constexpr const char* kSeeLog = "; the service's log says why";

struct NameOptions {
  std::vector<std::string> names;
  std::string dimension;  // empty: any
};

Client startClient(const CommonOptions& common) {
  Client client = common.client();
  client.requireService();
  startReceiver(client);
  return client;
}

void demand(const Client& client, const Json::Value& request, const std::string& failure) {
  if (client.send(request).result != 0) throw Failure(kFailure, failure + kSeeLog);
}

// Has the service keep the settings; last of all, when what was changed has been said.
void storeAll(const Client& client) {
  demand(client, command("PC", "STOREALL"),
         "the change is in force, but could not be stored: it ends with the service");
}

void setEnabled(const Client& client, bool enabled) {
  Json::Value request = command("PC", "SETPRTDETAIL");
  request["pc_enable"] = enabled ? 1 : 0;
  demand(client, request, "parental control could not be switched");
  if (isParentalEnabled(client) != enabled) {
    throw Failure(kFailure, "parental control could not be switched");
  }
}

// Limits are of no use without it.
void switchOn(const Client& client) {
  if (isParentalEnabled(client)) return;
  setEnabled(client, true);
  std::cout << "Parental control is on now\n";
}

// The names of the unrated groups that are wanted, joined by commas.
std::string groupNames(const std::function<bool(size_t)>& wanted) {
  std::string list;
  for (size_t i = 0; i < kUnratedGroups.size(); ++i) {
    if (wanted(i)) list += (list.empty() ? "" : ", ") + std::string(kUnratedGroups[i].name);
  }
  return list;
}

void printRegion(const RatingRegion& region, const Parental* groups) {
  Table table({{"Dimension", Align::kLeft}, {"Allowed", Align::kLeft}, {"Blocked", Align::kLeft}});
  for (const RatingDimension& dimension : region.dimensions) {
    table.add({dimension.name, dimension.names(false), dimension.names(true)});
  }
  if (groups != nullptr) {
    const auto names = [&](bool blocked) {
      return groupNames([&](size_t group) { return groups->groups[group] == blocked; });
    };
    table.add({"Not rated", names(false), names(true)});
  }
  table.print(std::cout, "  ", terminalWidth());
  if (region.dimensions.empty()) {
    std::cout << "  No rating table of this region is known; atsc-tv parental collect looks for "
                 "one\n";
  }
}

int show(const CommonOptions& common) {
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
    std::cout << "Now               " << channel->number() << ' ' << channel->name << ": "
              << viewingWords(common, *channel, askViewing(client)).sentence() << '\n';
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

// A value of a rating table, or an unrated group.
struct Choice {
  const RatingDimension* dimension = nullptr;
  const RatingValue* value = nullptr;
  int group = kNoGroup;
};

// Whether a value of a dimension is called so (in small letters).
bool isCalled(const RatingDimension& dimension, const RatingValue& value, const std::string& name) {
  return !name.empty() &&
         (lowerCase(value.abbreviation) == name || lowerCase(value.text) == name ||
          (dimension.isFlag() && value.is_limit && lowerCase(dimension.name) == name));
}

// What can be limited or blocked, as the end of a message.
std::string knownNames(const RatingRegion& region, bool groups) {
  std::string list;
  const auto add = [&](const std::string& title, const std::string& names) {
    if (!names.empty()) list += (list.empty() ? "" : "; ") + title + ": " + names;
  };
  for (const RatingDimension& dimension : region.dimensions) {
    std::string names;
    for (const RatingValue& value : dimension.values) {
      if (value.is_limit) names += (names.empty() ? "" : ", ") + value.name();
    }
    add(dimension.name, names);
  }
  if (groups) add("not rated", groupNames([](size_t) { return true; }));
  return list.empty() ? "no rating table of it is known; atsc-tv parental collect looks for one"
                      : "there are " + list;
}

// What a name means. Throws Failure where that is not one thing.
Choice choose(const RatingRegion& region, const std::string& given, const std::string& dimension,
              bool groups) {
  const std::string name = lowerCase(given);
  for (size_t i = 0; groups && dimension.empty() && i < kUnratedGroups.size(); ++i) {
    if (name == kUnratedGroups[i].name) return {nullptr, nullptr, static_cast<int>(i)};
  }
  std::vector<Choice> found;
  for (const RatingDimension& each : region.dimensions) {
    if (!dimension.empty() && lowerCase(each.name) != lowerCase(dimension)) continue;
    for (const RatingValue& value : each.values) {
      if (isCalled(each, value, name)) found.push_back({&each, &value, value.group});
    }
  }
  if (found.empty()) {
    throw Failure(kFailure, "region " + region.title() + " has no rating '" + given + "'" +
                                (dimension.empty() ? "" : " in a dimension '" + dimension + "'") +
                                "; " + knownNames(region, groups));
  }
  if (found.size() > 1) {
    std::string places;
    for (const Choice& choice : found) {
      places += (places.empty() ? "" : ", ") + choice.dimension->name + ": " + choice.value->name();
    }
    throw Failure(kFailure, "'" + given + "' may be " + places +
                                "; take the short name, or choose with --dimension");
  }
  const Choice& choice = found.front();
  if (!choice.value->is_limit && !(groups && choice.group != kNoGroup)) {
    throw Failure(kFailure,
                  "no limit can be set with '" + given + "'; " + knownNames(region, groups));
  }
  return choice;
}

// Blocks or frees a value in the rating document.
void encode(const Client& client, RatingRegion& region, const Choice& choice,
            const RatingValue& value, bool block) {
  constexpr int kLastFixed = 2;
  Json::Value request = region.limits;
  request["class"] = "PC";
  request["command"] = region.number <= kLastFixed ? "ENCODE" : "ENCODEDRRT";
  request["rat_dim"] = choice.dimension->number;
  request["val"] = value.number;
  request["block"] = block;
  region.limits = client.ask(request);
}

void store(const Client& client, const RatingRegion& region) {
  Json::Value request = region.limits;
  request["class"] = "PC";
  request["command"] = "STORERATING";
  demand(client, request, "the limits could not be changed");
}

void setGroup(const Client& client, int group, bool block) {
  Json::Value request = command("PC", "SETUNRATEDGRP");
  request["unrat_grp"] = group;
  request["block"] = block;
  demand(client, request,
         std::string(kUnratedGroups[static_cast<size_t>(group)].words) + " could not be " +
             (block ? "blocked" : "allowed"));
}

// Says what is blocked now of what was changed.
void printChanged(const Client& client, int region, const std::vector<Choice>& choices) {
  const RatingRegion now = readRatingRegion(client, region);
  for (const RatingDimension& dimension : now.dimensions) {
    if (std::none_of(choices.begin(), choices.end(), [&](const Choice& choice) {
          return choice.group == kNoGroup && choice.dimension->number == dimension.number;
        })) {
      continue;
    }
    const std::string blocked = dimension.names(true);
    std::cout << dimension.name << ": " << (blocked.empty() ? "nothing" : blocked) << " blocked\n";
  }
}

int removeLimits(const Client& client) {
  RatingRegion region = readRatingRegion(client, regionInForce(client));
  for (const char* object : {"us", "can"}) {
    for (Json::Value& level : region.limits[object]) level = 0;
  }
  for (Json::Value& row : region.limits["dwn"]) {
    for (Json::Value& level : row) level = 0;
  }
  store(client, region);
  std::cout << "No limits in region " << region.title() << '\n';
  storeAll(client);
  return kSuccess;
}

int limit(const CommonOptions& common, const NameOptions& options) {
  const Client client = startClient(common);
  if (options.names.size() == 1 && lowerCase(options.names.front()) == kNone) {
    return removeLimits(client);
  }
  RatingRegion region = readRatingRegion(client, regionInForce(client));
  std::vector<Choice> choices;
  for (const std::string& name : options.names) {
    choices.push_back(choose(region, name, options.dimension, false));
    const RatingDimension& dimension = *choices.back().dimension;
    if (!dimension.ordered) {
      throw Failure(kFailure, "the ratings of " + dimension.name +
                                  " are no steps to stop at; atsc-tv parental block and allow "
                                  "change each one");
    }
  }
  for (const Choice& choice : choices) {
    encode(client, region, choice, *choice.value, false);
    const auto next = std::find_if(choice.dimension->values.begin(), choice.dimension->values.end(),
                                   [&](const RatingValue& value) {
                                     return value.is_limit && value.number > choice.value->number;
                                   });
    if (next != choice.dimension->values.end()) encode(client, region, choice, *next, true);
  }
  store(client, region);
  switchOn(client);
  printChanged(client, region.number, choices);
  storeAll(client);
  return kSuccess;
}

int setBlocked(const CommonOptions& common, const NameOptions& options, bool block) {
  const Client client = startClient(common);
  RatingRegion region = readRatingRegion(client, regionInForce(client));
  std::vector<Choice> choices;
  for (const std::string& name : options.names) {
    choices.push_back(choose(region, name, options.dimension, true));
  }
  bool changes_limits = false;
  for (const Choice& choice : choices) {
    if (choice.group != kNoGroup) continue;
    encode(client, region, choice, *choice.value, block);
    changes_limits = true;
  }
  if (changes_limits) store(client, region);
  for (const Choice& choice : choices) {
    if (choice.group != kNoGroup) setGroup(client, choice.group, block);
  }
  if (block) switchOn(client);
  printChanged(client, region.number, choices);
  for (const Choice& choice : choices) {
    if (choice.group == kNoGroup) continue;
    std::string words = kUnratedGroups[static_cast<size_t>(choice.group)].words;
    words.front() = static_cast<char>(std::toupper(words.front()));
    std::cout << words << ": " << (block ? "blocked" : "allowed") << '\n';
  }
  storeAll(client);
  return kSuccess;
}

int region(const CommonOptions& common, const std::string& wanted) {
  const Client client = startClient(common);
  const std::vector<KnownRegion> regions = knownRegions(client);
  if (!wanted.empty()) {
    const auto found = std::find_if(regions.begin(), regions.end(), [&](const KnownRegion& each) {
      return wanted == std::to_string(each.number) || lowerCase(wanted) == lowerCase(each.name);
    });
    if (found == regions.end()) {
      std::string known;
      for (const KnownRegion& each : regions) {
        known += (known.empty() ? "" : ", ") + std::to_string(each.number) + ' ' + each.name;
      }
      throw Failure(kFailure, "no rating region '" + wanted + "' is known; there are " + known);
    }
    Json::Value request = command("PC", "SETCURRREG");
    request["region"] = found->number;
    demand(client, request, "the rating region could not be changed");
  }
  const int in_force = regionInForce(client);
  for (const KnownRegion& each : regions) {
    std::cout << (each.number == in_force ? "* " : "  ") << each.number << ' ' << each.name << '\n';
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
  std::cout << "Looking for rating tables on all listed stations; atsc-tv watch tells of each\n";
  return kSuccess;
}

int check(const CommonOptions& common, const std::string& system, const std::string& rating) {
  const Client client = startClient(common);
  Json::Value request = command("PC", "CHECKRAT");
  request["system"] = system;
  request["rating"] = rating;
  const bool blocked = client.ask(request)["blocked"] == true;
  std::cout << oneLine(rating) << ": " << (blocked ? "blocked" : "not blocked")
            << (blocked || isParentalEnabled(client) ? "" : " (parental control is off)") << '\n';
  return kSuccess;
}

template <typename Run>
CLI::App* add(CLI::App& parental, Action& action, const char* word, const char* help, Run run) {
  CLI::App* const command = parental.add_subcommand(word, help);
  command->callback([&action, run] { action = run; });
  return command;
}

void addNames(CLI::App& command, const std::shared_ptr<NameOptions>& options, const char* label,
              const char* help) {
  command.add_option(label, options->names, help)->required();
  command
      .add_option("--dimension", options->dimension,
                  "The dimension of the rating table where a name is in several")
      ->option_text("NAME");
}

}  // namespace

void addParental(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "parental", "Show parental control: region, what is blocked now and why; or change it");
  command->footer(
      "Ratings are called as the rating table in force calls them (atsc-tv parental shows it), in\n"
      "any case of letters, in short or in full. Each change is in force at once and kept.");
  command->require_subcommand(0, 1);
  command->callback([&action] {
    if (!action) action = show;
  });
  add(*command, action, "on", "Apply the limits",
      [](const CommonOptions& common) { return switchTo(common, true); });
  add(*command, action, "off", "Apply no limits; they are kept",
      [](const CommonOptions& common) { return switchTo(common, false); });

  auto limits = std::make_shared<NameOptions>();
  CLI::App* each =
      add(*command, action, "limit", "Set the highest ratings that are allowed; switches on",
          [limits](const CommonOptions& common) { return limit(common, *limits); });
  addNames(
      *each, limits, "RATING",
      "The highest rating allowed of its dimension, such as TV-PG or PG-13, also several; none "
      "removes all limits");
  each->footer(
      "none removes the limits of the region in force; atsc-tv parental reset those of all "
      "regions\n"
      "and groups. The others are allowed or blocked one by one: parental block, parental allow.");

  auto blocked = std::make_shared<NameOptions>();
  each = add(*command, action, "block", "Block ratings, content or unrated groups; switches on",
             [blocked](const CommonOptions& common) { return setBlocked(common, *blocked, true); });
  addNames(*each, blocked, "NAME",
           "A rating, with those above it, such as TV-MA; a content such as Violence or V; "
           "unrated, unrated-films (NR) or exempt: programmes without a rating");

  auto allowed = std::make_shared<NameOptions>();
  each =
      add(*command, action, "allow", "Allow ratings, content or unrated groups",
          [allowed](const CommonOptions& common) { return setBlocked(common, *allowed, false); });
  addNames(*each, allowed, "NAME", "As of block; a rating with those below it");

  auto wanted = std::make_shared<std::string>();
  each =
      add(*command, action, "region", "Show the known rating regions, or choose the one in force",
          [wanted](const CommonOptions& common) { return region(common, *wanted); });
  each->add_option("REGION", *wanted, "Its name or number");

  add(*command, action, "reset", "Remove all limits, of all regions, and switch off", reset);
  add(*command, action, "collect", "Look for rating tables on all listed stations", collect);

  auto question = std::make_shared<std::pair<std::string, std::string>>();
  each = add(*command, action, "check", "Whether a programme with this rating would be blocked",
             [question](const CommonOptions& common) {
               return check(common, question->first, question->second);
             });
  each->add_option("SYSTEM", question->first, "USA-TV, USA-MPAA, CAN-ENG or CAN-FRA")
      ->transform(CLI::IsMember({"USA-TV", "USA-MPAA", "CAN-ENG", "CAN-FRA"}, CLI::ignore_case))
      ->required();
  each->add_option("RATING", question->second,
                   "Such as TV-14-D-V or TV-14,D,V; what is no rating of the system is not blocked")
      ->required();
}

}  // namespace tv
