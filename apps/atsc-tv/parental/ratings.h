// Rating tables: the regions with their dimensions and values, by name.
#ifndef ATSC_TV_PARENTAL_RATINGS_H_
#define ATSC_TV_PARENTAL_RATINGS_H_

#include <json/value.h>

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tv {

// Programmes that have no rating to compare with a limit, by their numbers in commands.
struct UnratedGroup {
  const char* name;
  const char* words;  // "programmes without a rating"
};
enum UnratedGroupNumber { kUnrated = 0, kUnratedFilms = 1, kExempt = 2, kNoGroup = -1 };
extern const std::array<UnratedGroup, 3> kUnratedGroups;

// The names of the unrated groups that are wanted, joined by commas.
std::string unratedGroupNames(const std::function<bool(size_t)>& wanted);

// Texts of rating tables are printable lines.
struct RatingValue {
  int number;
  std::string abbreviation;  // either may be empty
  std::string text;
  bool isLimit;  // programmes with this value can be blocked
  int group;     // UnratedGroupNumber: this one decides instead
  bool blocked;

  const std::string& name() const { return abbreviation.empty() ? text : abbreviation; }
  // Whether that is its name, however it is typed.
  bool isNamed(const std::string& given) const;
};

struct RatingDimension {
  int number;
  std::string name;
  bool ordered;  // who is kept from a value is kept from those above
  std::vector<RatingValue> values;

  // Whether it has but one thing to be kept from.
  bool isFlag() const;
  // The names of the values that are blocked or not, joined by commas.
  std::string names(bool blocked) const;
};

struct RatingRegion {
  int number;
  std::string name;
  Json::Value limits;  // the rating document
  std::vector<RatingDimension> dimensions;

  // "1 U.S. (50 states + possessions)".
  std::string title() const;
};

// A value and its dimension, both of a region that outlives this.
struct Rated {
  const RatingDimension* dimension;
  const RatingValue* value;
};

// The values of a region that a rating such as "TV-14-D-V" has; none when it is no rating of the
// region.
std::vector<Rated> valuesOf(const RatingRegion& region, const std::string& rating);

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_RATINGS_H_
