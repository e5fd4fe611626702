#include "parental/parental.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "service/rows.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace tv {
namespace {

// Dimensions of the regions with a fixed meaning (CEA-766), whatever their tables call them.
struct FixedDimension {
  int number;
  const char* object;  // of the rating document
  const char* level;
  int first_limit;
  int last_limit;
};
constexpr FixedDimension kUS[] = {
    {0, "us", "tv", 2, 5},    {1, "us", "dia", 1, 1},  {2, "us", "lan", 1, 1},
    {3, "us", "sex", 1, 1},   {4, "us", "vio", 1, 1},  {5, "us", "child", 1, 2},
    {6, "us", nullptr, 1, 1}, {7, "us", "mpaa", 2, 7},
};
constexpr FixedDimension kCanada[] = {{0, "can", "eng", 1, 6}, {1, "can", "fra", 1, 5}};
constexpr int kChildren = 5;
constexpr int kFantasyViolence = 6;
constexpr int kOlderChildren = 2;        // of "child", with its fantasy violence
constexpr int kFantasyViolenceOnly = 3;  // of "child"
constexpr int kMpaa = 7;
constexpr int kNotRatedFilm = 8;

constexpr int kRegionUS = 1;
constexpr int kRegionCanada = 2;

bool isFixed(int region) { return region == kRegionUS || region == kRegionCanada; }

const FixedDimension* fixedDimension(int region, int dimension) {
  const auto find = [&](const auto& dimensions) -> const FixedDimension* {
    const auto found =
        std::find_if(std::begin(dimensions), std::end(dimensions),
                     [&](const FixedDimension& each) { return each.number == dimension; });
    return found != std::end(dimensions) ? found : nullptr;
  };
  return region == kRegionUS ? find(kUS) : region == kRegionCanada ? find(kCanada) : nullptr;
}

int groupOf(int region, int dimension, int value) {
  if (region == kRegionUS && dimension == kMpaa && value == kNotRatedFilm) return kUnratedFilms;
  if (region == kRegionCanada && value == 0) return kExempt;
  return kNoGroup;
}

// Whether the rating document blocks a value that is a limit.
bool isBlocked(const Json::Value& limits, int region, int dimension, int value) {
  if (!isFixed(region)) {
    const Json::Value& row = limits["dwn"][static_cast<Json::ArrayIndex>(dimension)];
    return row.isArray() && row[static_cast<Json::ArrayIndex>(value)] == 1;
  }
  const FixedDimension& fixed = *fixedDimension(region, dimension);
  const Json::Value& levels = limits[fixed.object];
  if (fixed.level == nullptr) {
    // TV-Y7 takes its fantasy violence with it.
    const int64_t children = integer(levels, "child");
    return children >= 1 && children <= kFantasyViolenceOnly;
  }
  const int64_t level = integer(levels, fixed.level);
  if (fixed.first_limit == fixed.last_limit) return level == 1;
  if (level < 1 || level > fixed.last_limit) return false;
  return value >= level;
}

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

// Those of unrated groups are not filled in yet.
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
      fixed != nullptr ? fixed->first_limit != fixed->last_limit : reply["grad"] == true;
  request["command"] = "GETVALTXT";
  for (int i = 0; i < intMember(reply, "dim_lvl"); ++i) {
    request["val"] = i;
    const Json::Value texts = client.ask(request);
    RatingValue value = {
        i,     textMember(texts, "abbr_rat_val_txt"), textMember(texts, "rat_val_txt"),
        false, groupOf(region.number, number, i),     false};
    // Nobody can be kept from what has no name.
    value.is_limit = isFixed(region.number)
                         ? fixed != nullptr && i >= fixed->first_limit && i <= fixed->last_limit
                         : !value.name().empty();
    value.blocked = value.is_limit && isBlocked(region.limits, region.number, number, i);
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

// The one value of a dimension that is a flag, if it is called so.
const RatingValue* flagNamed(const RatingDimension& dimension, const std::string& name) {
  if (!dimension.isFlag()) return nullptr;
  const auto found =
      std::find_if(dimension.values.begin(), dimension.values.end(),
                   [&](const RatingValue& value) { return value.is_limit && value.isNamed(name); });
  return found != dimension.values.end() ? &*found : nullptr;
}

// "TV-14, the limit is TV-PG", "V (Violence)".
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
    if (!value.is_limit || value.number >= rated.value->number) continue;
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

const std::array<UnratedGroup, 3> kUnratedGroups = {{
    {"unrated", "programmes without a rating"},
    {"unrated-films", "films that are not rated"},
    {"exempt", "programmes that are exempt from rating"},
}};

bool RatingValue::isNamed(const std::string& given) const {
  const std::string wanted = plainName(given);
  return !wanted.empty() && plainName(name()) == wanted;
}

bool RatingDimension::isFlag() const {
  return std::count_if(values.begin(), values.end(),
                       [](const RatingValue& value) { return value.is_limit; }) == 1;
}

std::string RatingDimension::names(bool blocked) const {
  std::string list;
  for (const RatingValue& value : values) {
    if (value.blocked != blocked || value.name().empty()) continue;
    list += (list.empty() ? "" : ", ") + value.name();
  }
  return list;
}

std::string RatingRegion::title() const {
  return std::to_string(number) + (name.empty() ? "" : ' ' + name);
}

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
  const int in_force = regionInForce(client);
  parental.regions.push_back(readRatingRegion(client, in_force));
  for (const int number : knownNumbers(client)) {
    if (number == in_force) continue;
    RatingRegion region = readLimits(client, number);
    // The document has the region's number in it.
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

std::vector<Rated> valuesOf(const RatingRegion& region, const std::string& rating) {
  // A name has hyphens of its own, though not many.
  constexpr int kMaxHyphens = 8;
  size_t end = 0;
  for (int i = 0; i <= kMaxHyphens && end < rating.size(); ++i) {
    end = std::min(rating.find('-', end + 1), rating.size());
    const std::string name = rating.substr(0, end);
    for (const RatingDimension& dimension : region.dimensions) {
      for (const RatingValue& value : dimension.values) {
        if (!value.isNamed(name)) continue;
        std::vector<Rated> values = {{&dimension, &value}};
        const std::vector<std::string> flags =
            split(end < rating.size() ? rating.substr(end + 1) : "", '-');
        for (const std::string& flag : flags) {
          for (const RatingDimension& other : region.dimensions) {
            if (const RatingValue* const named = flagNamed(other, flag)) {
              values.push_back({&other, named});
              break;
            }
          }
        }
        if (values.size() == flags.size() + 1) return values;
      }
    }
  }
  return {};
}

const RatingValue* keeperOf(const RatingRegion& region, const Rated& rated) {
  if (region.number != kRegionUS || rated.dimension->number != kFantasyViolence) return nullptr;
  for (const RatingDimension& dimension : region.dimensions) {
    if (dimension.number != kChildren) continue;
    for (const RatingValue& value : dimension.values) {
      if (value.number == kOlderChildren) return &value;
    }
  }
  return nullptr;
}

Json::Value changesOf(const Json::Value& before, const Json::Value& after) {
  Json::Value changes;
  changes["region"] = after["region"];
  for (const char* object : {"us", "can"}) {
    changes[object] = Json::objectValue;
    for (const std::string& level : after[object].getMemberNames()) {
      if (after[object][level] != before[object][level]) {
        changes[object][level] = after[object][level];
      }
    }
  }
  changes["dwn"] = Json::arrayValue;
  const Json::Value& rows = after["dwn"];
  for (Json::ArrayIndex i = 0; i < rows.size(); ++i) {
    if (rows[i] == before["dwn"][i]) continue;
    // A row without values leaves those of its dimension as they are.
    while (changes["dwn"].size() < i) changes["dwn"].append(Json::arrayValue);
    changes["dwn"].append(rows[i]);
  }
  return changes;
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

}  // namespace tv
