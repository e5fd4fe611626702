#include "common/ratings.h"

#include <algorithm>

#include "common/text.h"

namespace apps {
namespace {

// Returns the only value of a flag dimension if it has this name, else null.
const RatingValue* flagNamed(const RatingDimension& dimension, const std::string& name) {
  if (!dimension.isFlag()) return nullptr;
  const auto found =
      std::find_if(dimension.values.begin(), dimension.values.end(),
                   [&](const RatingValue& value) { return value.isLimit && value.isNamed(name); });
  return found != dimension.values.end() ? &*found : nullptr;
}

}  // namespace

const std::array<UnratedGroup, 3> kUnratedGroups = {{
    {"unrated", "programmes without a rating"},
    {"unrated-films", "films that are not rated"},
    {"exempt", "programmes that are exempt from rating"},
}};

std::string unratedGroupNames(const std::function<bool(size_t)>& wanted) {
  std::string list;
  for (size_t i = 0; i < kUnratedGroups.size(); ++i) {
    if (wanted(i)) list += (list.empty() ? "" : ", ") + std::string(kUnratedGroups[i].name);
  }
  return list;
}

bool RatingValue::isNamed(const std::string& given) const {
  const std::string wanted = plainName(given);
  return !wanted.empty() && plainName(name()) == wanted;
}

bool RatingDimension::isFlag() const {
  return std::count_if(values.begin(), values.end(),
                       [](const RatingValue& value) { return value.isLimit; }) == 1;
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

std::vector<Rated> valuesOf(const RatingRegion& region, const std::string& rating) {
  // A name may have a few hyphens itself.
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

}  // namespace apps
