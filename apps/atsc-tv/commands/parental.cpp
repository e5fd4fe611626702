// atsc-tv parental: who may watch what.
#include "parental/parental.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "channels/channel.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "parental/viewing.h"
#include "service/json.h"
#include "terminal/failure.h"
#include "terminal/table.h"
#include "terminal/terminal.h"
#include "terminal/text.h"

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

// A value of a rating table, or an unrated group.
struct Choice {
  const RatingDimension* dimension = nullptr;
  const RatingValue* value = nullptr;
  int group = kNoGroup;
};

// What a name is given for.
enum class Use { kLimit, kBlock, kCheck };

bool takes(Use use, const RatingDimension& dimension, const RatingValue& value) {
  return use == Use::kCheck || (use == Use::kLimit ? dimension.ordered && value.is_limit
                                                   : value.is_limit || value.group != kNoGroup);
}

// The names that can be given, as the end of a message.
std::string knownNames(const RatingRegion& region, Use use) {
  std::string list;
  const auto add = [&](const std::string& title, const std::string& names) {
    if (!names.empty()) list += (list.empty() ? "" : "; ") + title + ": " + names;
  };
  for (const RatingDimension& dimension : region.dimensions) {
    std::string names;
    for (const RatingValue& value : dimension.values) {
      if (value.name().empty() || !takes(use, dimension, value)) continue;
      names += (names.empty() ? "" : ", ") + value.name();
    }
    add(dimension.name, names);
  }
  if (use == Use::kBlock) add("not rated", groupNames([](size_t) { return true; }));
  if (!list.empty()) return "there are " + list;
  return region.dimensions.empty()
             ? "no rating table of it is known; atsc-tv parental collect looks for one"
             : "there are none";
}

// Those of `named` that are called so: the one with that very name, else all that begin with it.
template <typename Named>
std::vector<const Named*> called(const std::vector<Named>& named, const std::string& given) {
  const std::string wanted = plainName(given);
  std::vector<const Named*> found;
  if (wanted.empty()) return found;
  for (const Named& each : named) {
    const std::string name = plainName(each.name);
    if (name == wanted) return {&each};
    if (name.compare(0, wanted.size(), wanted) == 0) found.push_back(&each);
  }
  return found;
}

// The only one of `found`. Throws Failure where a name means several.
template <typename Named>
const Named& onlyOne(const std::vector<const Named*>& found, const std::string& given) {
  if (found.size() == 1) return *found.front();
  std::string names;
  for (const Named* each : found) names += (names.empty() ? "" : " or ") + each->name;
  throw Failure(kFailure, "'" + given + "' may be " + names);
}

// The values of some dimensions with this name: those with this short one, else those with this
// text in full or the only ones of a dimension that is called so.
std::vector<Choice> valuesNamed(const std::vector<const RatingDimension*>& dimensions,
                                const std::string& given, Use use) {
  const std::string name = plainName(given);
  std::vector<Choice> in_short;
  std::vector<Choice> in_full;
  for (const RatingDimension* dimension : dimensions) {
    for (const RatingValue& value : dimension->values) {
      const Choice choice = {dimension, &value, value.group};
      if (value.isNamed(given)) {
        in_short.push_back(choice);
      } else if (!name.empty() &&
                 (plainName(value.text) == name ||
                  (dimension->isFlag() && value.is_limit && plainName(dimension->name) == name))) {
        in_full.push_back(choice);
      }
    }
  }
  std::vector<Choice> found = in_short.empty() ? std::move(in_full) : std::move(in_short);
  const auto fits = [&](const Choice& c) { return takes(use, *c.dimension, *c.value); };
  if (std::any_of(found.begin(), found.end(), fits)) {
    found.erase(std::remove_if(found.begin(), found.end(), std::not_fn(fits)), found.end());
  }
  return found;
}

// Why a name of which there is no value cannot be taken.
Failure noSuchRating(const RatingRegion& region, const std::string& given, Use use) {
  const std::vector<Rated> parts = valuesOf(region, given);
  if (parts.size() > 1) {
    std::string content;
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
      content += ' ' + part->value->name();
    }
    const std::string& age = parts.front().value->name();
    return Failure(kFailure, "'" + given + "' is " + age + " with kinds of content; " +
                                 (use == Use::kLimit ? "atsc-tv parental limit " + age +
                                                           " and atsc-tv parental block" + content
                                                     : "give each one: " + age + content));
  }
  return Failure(kFailure, "region " + region.title() + " has no rating '" + given + "'; " +
                               knownNames(region, use));
}

// What a name means. Throws Failure where that is not one thing.
Choice choose(const RatingRegion& region, const std::string& given,
              const std::string& dimension_name, Use use) {
  const bool any_dimension = dimension_name.empty();
  for (size_t i = 0; use == Use::kBlock && any_dimension && i < kUnratedGroups.size(); ++i) {
    if (plainName(given) == plainName(kUnratedGroups[i].name)) {
      return {nullptr, nullptr, static_cast<int>(i)};
    }
  }
  std::vector<const RatingDimension*> dimensions;
  if (any_dimension) {
    for (const RatingDimension& each : region.dimensions) dimensions.push_back(&each);
  } else {
    dimensions = called(region.dimensions, dimension_name);
    if (dimensions.empty()) {
      std::string names;
      for (const RatingDimension& each : region.dimensions) {
        names += (names.empty() ? "" : ", ") + each.name;
      }
      throw Failure(kFailure, "region " + region.title() + " has no dimension '" + dimension_name +
                                  "'; there are " + names);
    }
    onlyOne(dimensions, dimension_name);
  }
  const std::vector<Choice> found = valuesNamed(dimensions, given, use);
  if (found.empty()) throw noSuchRating(region, given, use);
  const Choice& choice = found.front();
  const auto all = [&](auto same) { return std::all_of(found.begin(), found.end(), same); };
  const std::string& name = choice.value->name();
  if (!takes(use, *choice.dimension, *choice.value)) {
    if (!choice.value->is_limit && choice.group == kNoGroup) {
      throw Failure(kFailure,
                    "nobody can be kept from '" + given + "' alone; " + knownNames(region, use));
    }
    throw Failure(kFailure, (choice.group != kNoGroup ? name + " is no step"
                             : choice.dimension->isFlag()
                                 ? name + " is a kind of content, no step"
                                 : "the ratings of " + choice.dimension->name + " are no steps") +
                                " to stop at; atsc-tv parental block " + name);
  }
  // A group is blocked as a whole, whichever of its values stands for it.
  if (found.size() > 1 &&
      !all([&](const Choice& c) { return c.group != kNoGroup && c.group == choice.group; })) {
    const bool one_dimension =
        all([&](const Choice& c) { return c.dimension == choice.dimension; });
    std::string places;
    for (const Choice& c : found) {
      places +=
          (places.empty() ? "" : " or ") + (one_dimension ? c.value->name() : c.dimension->name);
    }
    throw Failure(kFailure, one_dimension ? "'" + given + "' may be " + places
                                          : "'" + given + "' may be of " + places +
                                                "; choose one with --dimension");
  }
  return choice;
}

// Blocks or frees a value in the rating document of a region.
void encode(const Client& client, const RatingRegion& region, Json::Value& limits,
            const RatingDimension& dimension, const RatingValue& value, bool block) {
  constexpr int kLastFixed = 2;
  Json::Value request = limits;
  request["class"] = "PC";
  request["command"] = region.number <= kLastFixed ? "ENCODE" : "ENCODEDRRT";
  request["rat_dim"] = dimension.number;
  request["val"] = value.number;
  request["block"] = block;
  const Reply reply = client.send(request);
  const RatingValue* const keeper = keeperOf(region, {&dimension, &value});
  if (reply.result != 0 && keeper != nullptr) {
    throw Failure(kFailure, value.name() + " is blocked with " + keeper->name() + "; allow that");
  }
  limits = parseJson(reply.text.value_or("")).value_or(Json::Value());
  if (!limits.isObject()) {
    throw Failure(kFailure,
                  value.name() + " cannot be " + (block ? "blocked" : "allowed") + kSeeLog);
  }
}

// What is blocked becomes what `limits` says, where that differs from what was known: another
// terminal may change limits, too.
void store(const Client& client, const Json::Value& known, const Json::Value& limits) {
  Json::Value request = changesOf(known, limits);
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
  const RatingRegion region = readRatingRegion(client, regionInForce(client));
  Json::Value limits = region.limits;
  for (const char* object : {"us", "can"}) {
    for (Json::Value& level : limits[object]) level = 0;
  }
  for (Json::Value& row : limits["dwn"]) {
    for (Json::Value& level : row) level = 0;
  }
  store(client, Json::Value(), limits);
  std::cout << "No limits in region " << region.title() << '\n';
  storeAll(client);
  return kSuccess;
}

Failure limitMisused(const std::string& fault) {
  return Failure(kUsage, fault + "; see atsc-tv parental limit --help");
}

int limit(const CommonOptions& common, const NameOptions& options) {
  const Client client = startClient(common);
  if (std::any_of(options.names.begin(), options.names.end(),
                  [](const std::string& name) { return plainName(name) == kNone; })) {
    if (options.names.size() == 1 && options.dimension.empty()) return removeLimits(client);
    throw limitMisused("none goes alone");
  }
  const RatingRegion region = readRatingRegion(client, regionInForce(client));
  std::vector<Choice> choices;
  for (const std::string& name : options.names) {
    const Choice choice = choose(region, name, options.dimension, Use::kLimit);
    for (const Choice& other : choices) {
      if (other.dimension != choice.dimension) continue;
      throw limitMisused(other.value->name() + " and " + choice.value->name() +
                         " are limits of one dimension, " + choice.dimension->name);
    }
    choices.push_back(choice);
  }
  Json::Value limits = region.limits;
  for (const Choice& choice : choices) {
    encode(client, region, limits, *choice.dimension, *choice.value, false);
    const auto next = std::find_if(choice.dimension->values.begin(), choice.dimension->values.end(),
                                   [&](const RatingValue& value) {
                                     return value.is_limit && value.number > choice.value->number;
                                   });
    if (next != choice.dimension->values.end()) {
      encode(client, region, limits, *choice.dimension, *next, true);
    }
  }
  store(client, region.limits, limits);
  switchOn(client);
  printChanged(client, region.number, choices);
  storeAll(client);
  return kSuccess;
}

int setBlocked(const CommonOptions& common, const NameOptions& options, bool block) {
  const Client client = startClient(common);
  const RatingRegion region = readRatingRegion(client, regionInForce(client));
  std::vector<Choice> choices;
  for (const std::string& name : options.names) {
    choices.push_back(choose(region, name, options.dimension, Use::kBlock));
  }
  // What keeps another one blocked comes before it in the table.
  const auto place = [](const Choice& c) { return c.dimension ? c.dimension->number : -1; };
  std::stable_sort(choices.begin(), choices.end(),
                   [&](const Choice& a, const Choice& b) { return place(a) < place(b); });
  Json::Value limits = region.limits;
  bool changes_limits = false;
  for (const Choice& choice : choices) {
    if (choice.group != kNoGroup) continue;
    encode(client, region, limits, *choice.dimension, *choice.value, block);
    changes_limits = true;
  }
  if (changes_limits) store(client, region.limits, limits);
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
    std::vector<const KnownRegion*> found = called(regions, wanted);
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
  std::cout
      << "Looking for rating tables on all listed stations; atsc-tv watch tells of each new one\n";
  return kSuccess;
}

// What a rating is compared with in the table of a region: the dimensions from first to last.
struct RatingSystem {
  const char* name;
  int region, first, last;
};
constexpr RatingSystem kSystems[] = {
    {"USA-TV", 1, 0, 6}, {"USA-MPAA", 1, 7, 7}, {"CAN-ENG", 2, 0, 0}, {"CAN-FRA", 2, 1, 1}};

// A rating, also with commas and its parts in any order, as the table calls it.
std::string ratingOf(const RatingRegion& region, const std::string& given) {
  std::string age;
  std::string content;
  for (const std::string& part : split(given, ',')) {
    const std::vector<Rated> values = valuesOf(region, part);
    if (values.empty() || (!values.front().dimension->isFlag() && !age.empty())) return "";
    for (const Rated& rated : values) {
      if (rated.dimension->isFlag()) {
        content += '-' + rated.value->name();
      } else {
        age = rated.value->name();
      }
    }
  }
  return age.empty() ? "" : age + content;
}

int check(const CommonOptions& common, const std::string& system_name, const std::string& given) {
  const Client client = startClient(common);
  const RatingSystem& system =
      *std::find_if(std::begin(kSystems), std::end(kSystems),
                    [&](const RatingSystem& each) { return system_name == each.name; });
  RatingRegion region = readRatingRegion(client, system.region);
  std::vector<RatingDimension>& dimensions = region.dimensions;
  dimensions.erase(std::remove_if(dimensions.begin(), dimensions.end(),
                                  [&](const RatingDimension& dimension) {
                                    return dimension.number < system.first ||
                                           dimension.number > system.last;
                                  }),
                   dimensions.end());
  const std::string rating = ratingOf(region, given);
  if (rating.empty()) {
    throw Failure(kFailure, "'" + given + "' is no rating of " + system.name + "; " +
                                knownNames(region, Use::kCheck));
  }
  Json::Value request = command("PC", "CHECKRAT");
  request["system"] = system.name;
  request["rating"] = rating;
  const bool blocked = client.ask(request)["blocked"] == true;
  std::cout << rating << ": " << (blocked ? "blocked" : "not blocked")
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
                  "The dimension of the rating table, or how its name begins, where a rating is in "
                  "several")
      ->option_text("NAME");
}

}  // namespace

void addParental(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "parental", "Show parental control: region, what is blocked now and why; or change it");
  command->footer(
      "Ratings are called as the rating table in force calls them (atsc-tv parental shows it), in\n"
      "short or in full; case, blanks, hyphens and full stops do not matter. Each change is in\n"
      "force at once and kept.");
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
  each->add_option("REGION", *wanted, "Its number, its name or how that begins");

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
  each->add_option("RATING", question->second, "Such as TV-14-D-V or TV-14,D,V")->required();
}

}  // namespace tv
