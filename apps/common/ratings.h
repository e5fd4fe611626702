// Rating tables: regions, their dimensions and the values of these.
#ifndef ATSC_APPS_COMMON_RATINGS_H_
#define ATSC_APPS_COMMON_RATINGS_H_

#include <json/value.h>

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace apps {

// Groups of programmes without a rating to compare with a limit. Commands identify a group by its
// index.
struct UnratedGroup {
  const char* name;
  const char* words;  // "programmes without a rating"
};
enum UnratedGroupNumber { kUnrated = 0, kUnratedFilms = 1, kExempt = 2, kNoGroup = -1 };
extern const std::array<UnratedGroup, 3> kUnratedGroups;

// Returns the names of the unrated groups that `wanted` accepts, separated by commas.
std::string unratedGroupNames(const std::function<bool(size_t)>& wanted);

// A value of a dimension. Texts of rating tables are printable lines.
struct RatingValue {
  int number;
  std::string abbreviation;  // abbreviation and text may be empty
  std::string text;
  bool isLimit;  // programmes with this value can be blocked by a limit
  int group;     // UnratedGroupNumber of the group that blocks this value instead
  bool blocked;

  const std::string& name() const { return abbreviation.empty() ? text : abbreviation; }
  // Returns whether `given` is the value's name; compares plainName().
  bool isNamed(const std::string& given) const;
};

struct RatingDimension {
  int number;
  std::string name;
  bool ordered;  // blocking a value blocks all higher values
  std::vector<RatingValue> values;

  // Returns whether exactly one value of the dimension can be blocked.
  bool isFlag() const;
  // Returns the names of the values that are blocked, or of those that are not, separated by
  // commas.
  std::string names(bool blocked) const;
};

struct RatingRegion {
  int number;
  std::string name;
  Json::Value limits;  // the rating document
  std::vector<RatingDimension> dimensions;

  // Returns number and name as "1 U.S. (50 states + possessions)".
  std::string title() const;
};

// A value and its dimension. The region that holds them must outlive this object.
struct Rated {
  const RatingDimension* dimension;
  const RatingValue* value;
};

// Returns the values of a region that a rating such as "TV-14-D-V" consists of; none if the region
// does not have the rating.
std::vector<Rated> valuesOf(const RatingRegion& region, const std::string& rating);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_RATINGS_H_
