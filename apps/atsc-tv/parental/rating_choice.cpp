#include "parental/rating_choice.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace apps::tv {
namespace {

bool takes(RatingUse use, const RatingDimension& dimension, const RatingValue& value) {
  return use == RatingUse::kCheck ||
         (use == RatingUse::kLimit ? dimension.ordered && value.isLimit
                                   : value.isLimit || value.group != kNoGroup);
}

// Returns the values with a name. Abbreviations take precedence over full texts and over the names
// of dimensions with a single value.
std::vector<RatingChoice> valuesNamed(const std::vector<const RatingDimension*>& dimensions,
                                      const std::string& given, RatingUse use) {
  const std::string name = plainName(given);
  std::vector<RatingChoice> inShort;
  std::vector<RatingChoice> inFull;
  for (const RatingDimension* dimension : dimensions) {
    for (const RatingValue& value : dimension->values) {
      const RatingChoice choice = {dimension, &value, value.group};
      if (value.isNamed(given)) {
        inShort.push_back(choice);
      } else if (!name.empty() &&
                 (plainName(value.text) == name ||
                  (dimension->isFlag() && value.isLimit && plainName(dimension->name) == name))) {
        inFull.push_back(choice);
      }
    }
  }
  std::vector<RatingChoice> found = inShort.empty() ? std::move(inFull) : std::move(inShort);
  const auto fits = [&](const RatingChoice& c) { return takes(use, *c.dimension, *c.value); };
  if (std::any_of(found.begin(), found.end(), fits)) {
    found.erase(std::remove_if(found.begin(), found.end(), std::not_fn(fits)), found.end());
  }
  return found;
}

// Returns the failure for a name that no value has.
Failure noSuchRating(const RatingRegion& region, const std::string& given, RatingUse use) {
  const std::vector<Rated> parts = valuesOf(region, given);
  if (parts.size() > 1) {
    std::string content;
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
      content += ' ' + part->value->name();
    }
    const std::string& age = parts.front().value->name();
    return Failure(kFailure,
                   "'" + given + "' is " + age + " with kinds of content; " +
                       (use == RatingUse::kLimit ? "atsc-tv parental limit " + age +
                                                       " and atsc-tv parental block" + content
                                                 : "give each one: " + age + content));
  }
  return Failure(kFailure, "region " + region.title() + " has no rating '" + given + "'; " +
                               knownRatingNames(region, use));
}

}  // namespace

std::string knownRatingNames(const RatingRegion& region, RatingUse use) {
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
  if (use == RatingUse::kBlock) add("not rated", unratedGroupNames([](size_t) { return true; }));
  if (!list.empty()) return "there are " + list;
  return region.dimensions.empty()
             ? "no rating table of it is known; atsc-tv parental collect looks for one"
             : "there are none";
}

RatingChoice chooseRating(const RatingRegion& region, const std::string& given,
                          const std::string& dimensionName, RatingUse use) {
  const bool anyDimension = dimensionName.empty();
  for (size_t i = 0; use == RatingUse::kBlock && anyDimension && i < kUnratedGroups.size(); ++i) {
    if (plainName(given) == plainName(kUnratedGroups[i].name)) {
      return {nullptr, nullptr, static_cast<int>(i)};
    }
  }
  std::vector<const RatingDimension*> dimensions;
  if (anyDimension) {
    for (const RatingDimension& each : region.dimensions) dimensions.push_back(&each);
  } else {
    dimensions = findNamed(region.dimensions, dimensionName);
    if (dimensions.empty()) {
      std::string names;
      for (const RatingDimension& each : region.dimensions) {
        names += (names.empty() ? "" : ", ") + each.name;
      }
      throw Failure(kFailure, "region " + region.title() + " has no dimension '" + dimensionName +
                                  "'; there are " + names);
    }
    onlyOne(dimensions, dimensionName);
  }
  const std::vector<RatingChoice> found = valuesNamed(dimensions, given, use);
  if (found.empty()) throw noSuchRating(region, given, use);
  const RatingChoice& choice = found.front();
  const auto all = [&](auto same) { return std::all_of(found.begin(), found.end(), same); };
  const std::string& name = choice.value->name();
  if (!takes(use, *choice.dimension, *choice.value)) {
    if (!choice.value->isLimit && choice.group == kNoGroup) {
      throw Failure(kFailure,
                    "'" + given + "' alone cannot be blocked; " + knownRatingNames(region, use));
    }
    throw Failure(kFailure, (choice.group != kNoGroup ? name + " cannot be a limit"
                             : choice.dimension->isFlag()
                                 ? name + " is a kind of content and cannot be a limit"
                                 : "the ratings of " + choice.dimension->name +
                                       " have no order and cannot be limits") +
                                "; use atsc-tv parental block " + name);
  }
  // Several values of the same group are one choice: a group is blocked as a whole.
  if (found.size() > 1 &&
      !all([&](const RatingChoice& c) { return c.group != kNoGroup && c.group == choice.group; })) {
    const bool oneDimension =
        all([&](const RatingChoice& c) { return c.dimension == choice.dimension; });
    std::string places;
    for (const RatingChoice& c : found) {
      places +=
          (places.empty() ? "" : " or ") + (oneDimension ? c.value->name() : c.dimension->name);
    }
    throw Failure(kFailure, oneDimension ? "'" + given + "' may be " + places
                                         : "'" + given + "' may be of " + places +
                                               "; choose one with --dimension");
  }
  return choice;
}

}  // namespace apps::tv
