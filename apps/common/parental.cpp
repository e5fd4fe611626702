#include "common/parental.h"

#include <algorithm>

#include "common/json.h"
#include "common/rating_document.h"
#include "common/service.h"
#include "common/text.h"

namespace apps {
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
RatingDimension readDimension(const Ask& ask, const RatingRegion& region, int number) {
  Json::Value request = question("DIMNAME", region.number);
  request["rat_dim"] = number;
  const Json::Value reply = ask(request);
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
    const Json::Value texts = ask(request);
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

RatingRegion readLimits(const Ask& ask, int number) {
  return {number, "", ask(question("RETREIVERATING", number)), {}};
}

std::string readName(const Ask& ask, int number) {
  return textMember(ask(question("GETRRTDETAIL", number)), "reg_name");
}

void readTable(const Ask& ask, RatingRegion& region) {
  region.name = readName(ask, region.number);
  const int count = intMember(ask(question("NUMDIM", region.number)), "num_dim");
  for (int i = 0; i < count; ++i) {
    region.dimensions.push_back(readDimension(ask, region, i));
  }
}

std::vector<int> knownNumbers(const Ask& ask) {
  std::vector<int> numbers;
  const Json::Value reply = ask(command("PC", "GETREGION"));
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
BlockReason reasonOf(const Rated& rated) {
  const RatingDimension& dimension = *rated.dimension;
  const std::string& name = rated.value->name();
  if (rated.value->group != kNoGroup) {
    return {name,
            name + " (" + kUnratedGroups[static_cast<size_t>(rated.value->group)].words + ')'};
  }
  if (!dimension.ordered) return {name, name + " (" + dimension.name + ')'};
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
  return {name, name + (limit != nullptr ? ", the limit is " + limit->name()
                                         : ", the limit is below " + lowest->name())};
}

}  // namespace

bool isParentalEnabled(const Ask& ask) {
  return ask(command("PC", "GETPRTDETAIL"))["pc_enable"] == 1;
}

int regionInForce(const Ask& ask) { return intMember(ask(command("PC", "GETCURRREG")), "region"); }

std::vector<KnownRegion> knownRegions(const Ask& ask) {
  std::vector<KnownRegion> regions;
  for (const int number : knownNumbers(ask)) regions.push_back({number, readName(ask, number)});
  return regions;
}

RatingRegion readRatingRegion(const Ask& ask, int number) {
  RatingRegion region = readLimits(ask, number);
  if (isKnown(knownNumbers(ask), number)) readTable(ask, region);
  return region;
}

Parental readParental(const Ask& ask) {
  Parental parental;
  parental.enabled = isParentalEnabled(ask);
  for (size_t i = 0; i < kUnratedGroups.size(); ++i) {
    Json::Value request = command("PC", "GETUNRATEDGRP");
    request["unrat_grp"] = static_cast<int>(i);
    parental.groups[i] = ask(request)["block"] == true;
  }
  const int inForce = regionInForce(ask);
  parental.regions.push_back(readRatingRegion(ask, inForce));
  for (const int number : knownNumbers(ask)) {
    if (number == inForce) continue;
    RatingRegion region = readLimits(ask, number);
    // The document also holds the region's number, which is not a limit.
    Json::Value limits = region.limits;
    limits.removeMember("region");
    if (!hasLimits(limits)) continue;
    readTable(ask, region);
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

std::vector<BlockReason> blockReasons(const Parental& parental, const std::string& rating) {
  std::vector<BlockReason> reasons;
  for (const std::string& part : split(rating, ',')) {
    const size_t begin = part.find_first_not_of(' ');
    if (begin == std::string::npos) continue;
    for (const RatingRegion& region : parental.regions) {
      for (const Rated& rated : valuesOf(region, part.substr(begin))) {
        if (!rated.value->blocked) continue;
        BlockReason reason = reasonOf(rated);
        if (std::none_of(reasons.begin(), reasons.end(),
                         [&](const BlockReason& other) { return other.words == reason.words; })) {
          reasons.push_back(std::move(reason));
        }
      }
    }
  }
  return reasons;
}

std::string blockReason(const Parental& parental, const std::string& rating) {
  if (rating.empty()) {
    return parental.groups[kUnrated] ? "it has no rating" : "";
  }
  std::string words;
  for (const BlockReason& reason : blockReasons(parental, rating)) {
    words += (words.empty() ? "" : "; ") + reason.words;
  }
  return words;
}

}  // namespace apps
