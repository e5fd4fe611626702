#include "parental/parental.h"

#include <algorithm>

#include "parental/rating_document.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

Json::Value question(const char* name, int region) {
  Json::Value request = command("PC", name);
  request["region"] = region;
  return request;
}

std::string textMember(const Json::Value& reply, const char* key) {
  return reply[key].isString() ? oneLine(reply[key].asString()) : "";
}

int intMember(const Json::Value& reply, const char* key) {
  return reply[key].isInt() ? reply[key].asInt() : 0;
}

// Reads a dimension. Does not yet fill in whether values of unrated groups are blocked.
RatingDimension readDimension(const Client& client, const RatingRegion& region, int number) {
  Json::Value request = question("DIMNAME", region.number);
  request["rat_dim"] = number;
  const Json::Value reply = client.ask(request);
  const FixedDimension* const fixed = fixedDimension(region.number, number);
  RatingDimension dimension;
  dimension.number = number;
  dimension.name = textMember(reply, "dim_name");
  if (dimension.name.empty()) dimension.name = "Dimension " + std::to_string(number + 1);
  dimension.ordered =
      fixed != nullptr ? fixed->firstLimit != fixed->lastLimit : reply["grad"] == true;
  request["command"] = "GETVALTXT";
  for (int i = 0; i < intMember(reply, "dim_lvl"); ++i) {
    request["val"] = i;
    const Json::Value texts = client.ask(request);
    RatingValue value = {
        i,     textMember(texts, "abbr_rat_val_txt"),    textMember(texts, "rat_val_txt"),
        false, unratedGroupOf(region.number, number, i), false};
    // A value without a name cannot be blocked.
    value.isLimit = isFixedRegion(region.number)
                        ? fixed != nullptr && i >= fixed->firstLimit && i <= fixed->lastLimit
                        : !value.name().empty();
    value.blocked = value.isLimit && isBlocked(region.limits, region.number, number, i);
    dimension.values.push_back(std::move(value));
  }
  return dimension;
}

RatingRegion readLimits(const Client& client, int number) {
  return {number, "", client.ask(question("RETREIVERATING", number)), {}};
}

std::string readName(const Client& client, int number) {
  return textMember(client.ask(question("GETRRTDETAIL", number)), "reg_name");
}

void readTable(const Client& client, RatingRegion& region) {
  region.name = readName(client, region.number);
  const int count = intMember(client.ask(question("NUMDIM", region.number)), "num_dim");
  for (int i = 0; i < count; ++i) {
    region.dimensions.push_back(readDimension(client, region, i));
  }
}

std::vector<int> knownNumbers(const Client& client) {
  std::vector<int> numbers;
  const Json::Value reply = client.ask(command("PC", "GETREGION"));
  for (const Json::Value& number : reply["reg_lst"]) {
    if (number.isInt()) numbers.push_back(number.asInt());
  }
  return numbers;
}

bool isKnown(const std::vector<int>& numbers, int number) {
  return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

bool hasLimits(const Json::Value& value) {
  if (value.isObject() || value.isArray()) {
    return std::any_of(value.begin(), value.end(), hasLimits);
  }
  return value.isInt() && value.asInt() > 0;
}

// Describes why a value is blocked: "TV-14, the limit is TV-PG", "V (Violence)".
std::string reasonOf(const Rated& rated) {
  const RatingDimension& dimension = *rated.dimension;
  const std::string& name = rated.value->name();
  if (rated.value->group != kNoGroup) {
    return name + " (" + kUnratedGroups[static_cast<size_t>(rated.value->group)].words + ')';
  }
  if (!dimension.ordered) return name + " (" + dimension.name + ')';
  const RatingValue* limit = nullptr;
  const RatingValue* lowest = rated.value;
  for (const RatingValue& value : dimension.values) {
    if (!value.isLimit || value.number >= rated.value->number) continue;
    if (value.blocked) {
      if (lowest == rated.value) lowest = &value;
    } else {
      limit = &value;
    }
  }
  return name + (limit != nullptr ? ", the limit is " + limit->name()
                                  : ", the limit is below " + lowest->name());
}

}  // namespace

bool isParentalEnabled(const Client& client) {
  return client.ask(command("PC", "GETPRTDETAIL"))["pc_enable"] == 1;
}

int regionInForce(const Client& client) {
  return intMember(client.ask(command("PC", "GETCURRREG")), "region");
}

std::vector<KnownRegion> knownRegions(const Client& client) {
  std::vector<KnownRegion> regions;
  for (const int number : knownNumbers(client))
    regions.push_back({number, readName(client, number)});
  return regions;
}

RatingRegion readRatingRegion(const Client& client, int number) {
  RatingRegion region = readLimits(client, number);
  if (isKnown(knownNumbers(client), number)) readTable(client, region);
  return region;
}

Parental readParental(const Client& client) {
  Parental parental;
  parental.enabled = isParentalEnabled(client);
  for (size_t i = 0; i < kUnratedGroups.size(); ++i) {
    Json::Value request = command("PC", "GETUNRATEDGRP");
    request["unrat_grp"] = static_cast<int>(i);
    parental.groups[i] = client.ask(request)["block"] == true;
  }
  const int inForce = regionInForce(client);
  parental.regions.push_back(readRatingRegion(client, inForce));
  for (const int number : knownNumbers(client)) {
    if (number == inForce) continue;
    RatingRegion region = readLimits(client, number);
    // The document also holds the region's number, which is not a limit.
    Json::Value limits = region.limits;
    limits.removeMember("region");
    if (!hasLimits(limits)) continue;
    readTable(client, region);
    parental.regions.push_back(std::move(region));
  }
  for (RatingRegion& region : parental.regions) {
    for (RatingDimension& dimension : region.dimensions) {
      for (RatingValue& value : dimension.values) {
        if (value.group != kNoGroup)
          value.blocked = parental.groups[static_cast<size_t>(value.group)];
      }
    }
  }
  return parental;
}

std::string blockReason(const Parental& parental, const std::string& rating) {
  if (rating.empty()) {
    return parental.groups[kUnrated] ? "it has no rating" : "";
  }
  std::vector<std::string> reasons;
  for (const std::string& part : split(rating, ',')) {
    const size_t begin = part.find_first_not_of(' ');
    if (begin == std::string::npos) continue;
    for (const RatingRegion& region : parental.regions) {
      for (const Rated& rated : valuesOf(region, part.substr(begin))) {
        if (!rated.value->blocked) continue;
        std::string reason = reasonOf(rated);
        if (std::find(reasons.begin(), reasons.end(), reason) == reasons.end()) {
          reasons.push_back(std::move(reason));
        }
      }
    }
  }
  std::string words;
  for (const std::string& reason : reasons) words += (words.empty() ? "" : "; ") + reason;
  return words;
}

}  // namespace apps::tv
