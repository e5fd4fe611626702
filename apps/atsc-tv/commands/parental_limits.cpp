// atsc-tv parental limit, block, allow: change what is blocked.
#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands/parental.h"
#include "common/json.h"
#include "common/parental.h"
#include "common/rating_document.h"
#include "parental/rating_choice.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

constexpr const char* kNone = "none";

struct NameOptions {
  std::vector<std::string> names;
  std::string dimension;  // empty: any
};

// Blocks or allows a value in the rating document of a region.
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
    throw Failure(kFailure, value.name() + " is blocked together with " + keeper->name() +
                                "; allow " + keeper->name());
  }
  limits = parseJson(reply.text.value_or("")).value_or(Json::Value());
  if (!limits.isObject()) {
    throw Failure(kFailure,
                  value.name() + " cannot be " + (block ? "blocked" : "allowed") + kSeeLog);
  }
}

// Stores `limits` where they differ from `known`, the limits read before: another client of the
// service may have changed other limits since.
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

// Prints what is blocked now in the dimensions that were changed.
void printChanged(const Client& client, int region, const std::vector<RatingChoice>& choices) {
  const RatingRegion now = readRatingRegion(client, region);
  for (const RatingDimension& dimension : now.dimensions) {
    if (std::none_of(choices.begin(), choices.end(), [&](const RatingChoice& choice) {
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
    throw limitMisused("none cannot be combined with other ratings or --dimension");
  }
  const RatingRegion region = readRatingRegion(client, regionInForce(client));
  std::vector<RatingChoice> choices;
  for (const std::string& name : options.names) {
    const RatingChoice choice = chooseRating(region, name, options.dimension, RatingUse::kLimit);
    for (const RatingChoice& other : choices) {
      if (other.dimension != choice.dimension) continue;
      throw limitMisused(other.value->name() + " and " + choice.value->name() +
                         " are limits of one dimension, " + choice.dimension->name);
    }
    choices.push_back(choice);
  }
  Json::Value limits = region.limits;
  for (const RatingChoice& choice : choices) {
    encode(client, region, limits, *choice.dimension, *choice.value, false);
    const auto next = std::find_if(choice.dimension->values.begin(), choice.dimension->values.end(),
                                   [&](const RatingValue& value) {
                                     return value.isLimit && value.number > choice.value->number;
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
  std::vector<RatingChoice> choices;
  for (const std::string& name : options.names) {
    choices.push_back(chooseRating(region, name, options.dimension, RatingUse::kBlock));
  }
  // A value that keeps another value blocked precedes it in the table.
  const auto place = [](const RatingChoice& c) { return c.dimension ? c.dimension->number : -1; };
  std::stable_sort(
      choices.begin(), choices.end(),
      [&](const RatingChoice& a, const RatingChoice& b) { return place(a) < place(b); });
  Json::Value limits = region.limits;
  bool changesLimits = false;
  for (const RatingChoice& choice : choices) {
    if (choice.group != kNoGroup) continue;
    encode(client, region, limits, *choice.dimension, *choice.value, block);
    changesLimits = true;
  }
  if (changesLimits) store(client, region.limits, limits);
  for (const RatingChoice& choice : choices) {
    if (choice.group != kNoGroup) setGroup(client, choice.group, block);
  }
  if (block) switchOn(client);
  printChanged(client, region.number, choices);
  for (const RatingChoice& choice : choices) {
    if (choice.group == kNoGroup) continue;
    std::string words = kUnratedGroups[static_cast<size_t>(choice.group)].words;
    words.front() = static_cast<char>(std::toupper(words.front()));
    std::cout << words << ": " << (block ? "blocked" : "allowed") << '\n';
  }
  storeAll(client);
  return kSuccess;
}

void addNames(CLI::App& command, const std::shared_ptr<NameOptions>& options, const char* label,
              const char* help) {
  command.add_option(label, options->names, help)->required();
  command
      .add_option("--dimension", options->dimension,
                  "Dimension of the rating table, or the beginning of its name; needed for a "
                  "rating that several dimensions have")
      ->option_text("NAME");
}

}  // namespace

void addParentalLimits(CLI::App& parental, Action& action) {
  auto limits = std::make_shared<NameOptions>();
  CLI::App* each = addParentalCommand(
      parental, action, "limit", "Set the highest allowed ratings and switch parental control on",
      [limits](const CommonOptions& common) { return limit(common, *limits); });
  addNames(*each, limits, "RATING",
           "The highest allowed rating of a dimension, such as TV-PG or PG-13; may be repeated for "
           "other dimensions; none removes all limits");
  each->footer(
      "none removes the limits of the rating region in force; atsc-tv parental reset removes "
      "those\n"
      "of all regions and groups. parental block and parental allow change single ratings.");

  auto blocked = std::make_shared<NameOptions>();
  each = addParentalCommand(
      parental, action, "block",
      "Block ratings, content or unrated groups and switch parental control on",
      [blocked](const CommonOptions& common) { return setBlocked(common, *blocked, true); });
  addNames(*each, blocked, "NAME",
           "A rating such as TV-MA, with all higher ratings; a kind of content such as Violence or "
           "V; a group of programmes without a rating: unrated, unrated-films (NR), exempt");

  auto allowed = std::make_shared<NameOptions>();
  each = addParentalCommand(
      parental, action, "allow", "Allow ratings, content or unrated groups",
      [allowed](const CommonOptions& common) { return setBlocked(common, *allowed, false); });
  addNames(*each, allowed, "NAME", "As for block; a rating is allowed with all lower ratings");
}

}  // namespace apps::tv
