// Parental control as the service knows it, by name: what is blocked, and why.
#ifndef ATSC_TV_PARENTAL_PARENTAL_H_
#define ATSC_TV_PARENTAL_PARENTAL_H_

#include <json/value.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "service/client.h"

namespace tv {

// Programmes that have no rating to compare with a limit, by their numbers in commands.
struct UnratedGroup {
  const char* name;
  const char* words;  // "programmes without a rating"
};
enum UnratedGroupNumber { kUnrated = 0, kUnratedFilms = 1, kExempt = 2, kNoGroup = -1 };
extern const std::array<UnratedGroup, 3> kUnratedGroups;

// Texts of rating tables are printable lines.
struct RatingValue {
  int number;
  std::string abbreviation;  // either may be empty
  std::string text;
  bool is_limit;  // programmes with this value can be blocked
  int group;      // UnratedGroupNumber: this one decides instead
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

struct Parental {
  bool enabled;
  std::array<bool, kUnratedGroups.size()> groups;  // whether they are blocked
  std::vector<RatingRegion> regions;               // the one in force, then others with limits
};

struct KnownRegion {
  int number;
  std::string name;
};

// All of these throw Failure when the service does not tell.
Parental readParental(const Client& client);
bool isParentalEnabled(const Client& client);
int regionInForce(const Client& client);
std::vector<KnownRegion> knownRegions(const Client& client);
RatingRegion readRatingRegion(const Client& client, int number);

// A value and its dimension, both of a region that outlives this.
struct Rated {
  const RatingDimension* dimension;
  const RatingValue* value;
};

// The values of a region that a rating such as "TV-14-D-V" has; none when it is no rating of the
// region.
std::vector<Rated> valuesOf(const RatingRegion& region, const std::string& rating);

// The value that has this one blocked whatever is done with it; null when there is none.
const RatingValue* keeperOf(const RatingRegion& region, const Rated& rated);

// The rating document that changes what differs between two of a region and leaves all else as it
// is in force.
Json::Value changesOf(const Json::Value& before, const Json::Value& after);

// What a rating text such as "TV-14-D-V, PG-13" has that is blocked, for people; empty when nothing
// of it is, or is known.
std::string blockReason(const Parental& parental, const std::string& rating);

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_PARENTAL_H_
