#include "common/rating_document.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "common/json.h"

namespace apps {
namespace {

constexpr FixedDimension kUS[] = {
    {0, "us", "tv", 2, 5},    {1, "us", "dia", 1, 1},  {2, "us", "lan", 1, 1},
    {3, "us", "sex", 1, 1},   {4, "us", "vio", 1, 1},  {5, "us", "child", 1, 2},
    {6, "us", nullptr, 1, 1}, {7, "us", "mpaa", 2, 7},
};
constexpr FixedDimension kCanada[] = {{0, "can", "eng", 1, 6}, {1, "can", "fra", 1, 5}};
constexpr int kChildren = 5;
constexpr int kFantasyViolence = 6;
constexpr int kOlderChildren = 2;        // of "child", includes its fantasy violence
constexpr int kFantasyViolenceOnly = 3;  // of "child"
constexpr int kMpaa = 7;
constexpr int kNotRatedFilm = 8;

constexpr int kRegionUS = 1;
constexpr int kRegionCanada = 2;

}  // namespace

bool isFixedRegion(int region) { return region == kRegionUS || region == kRegionCanada; }

const FixedDimension* fixedDimension(int region, int dimension) {
  const auto find = [&](const auto& dimensions) -> const FixedDimension* {
    const auto found =
        std::find_if(std::begin(dimensions), std::end(dimensions),
                     [&](const FixedDimension& each) { return each.number == dimension; });
    return found != std::end(dimensions) ? found : nullptr;
  };
  return region == kRegionUS ? find(kUS) : region == kRegionCanada ? find(kCanada) : nullptr;
}

int unratedGroupOf(int region, int dimension, int value) {
  if (region == kRegionUS && dimension == kMpaa && value == kNotRatedFilm) return kUnratedFilms;
  if (region == kRegionCanada && value == 0) return kExempt;
  return kNoGroup;
}

bool isBlocked(const Json::Value& limits, int region, int dimension, int value) {
  if (!isFixedRegion(region)) {
    const Json::Value& row = limits["dwn"][static_cast<Json::ArrayIndex>(dimension)];
    return row.isArray() && row[static_cast<Json::ArrayIndex>(value)] == 1;
  }
  const FixedDimension& fixed = *fixedDimension(region, dimension);
  const Json::Value& levels = limits[fixed.object];
  if (fixed.level == nullptr) {
    // A blocked TV-Y7 includes its fantasy violence.
    const int64_t children = integer(levels, "child");
    return children >= 1 && children <= kFantasyViolenceOnly;
  }
  const int64_t level = integer(levels, fixed.level);
  if (fixed.firstLimit == fixed.lastLimit) return level == 1;
  if (level < 1 || level > fixed.lastLimit) return false;
  return value >= level;
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
    // A row without values leaves the limits of its dimension as they are.
    while (changes["dwn"].size() < i) changes["dwn"].append(Json::arrayValue);
    changes["dwn"].append(rows[i]);
  }
  return changes;
}

}  // namespace apps
