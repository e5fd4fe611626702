// Finds ratings, unrated groups and regions by the names that users type.
#ifndef ATSC_TV_PARENTAL_RATING_CHOICE_H_
#define ATSC_TV_PARENTAL_RATING_CHOICE_H_

#include <string>
#include <vector>

#include "common/ratings.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {

// A value of a rating table, or an unrated group.
struct RatingChoice {
  const RatingDimension* dimension = nullptr;
  const RatingValue* value = nullptr;
  int group = kNoGroup;
};

// The purpose of a name that the user typed.
enum class RatingUse { kLimit, kBlock, kCheck };

// Returns the names that users can type for a purpose, as the end of a message.
std::string knownRatingNames(const RatingRegion& region, RatingUse use);

// Returns what a name means. An empty `dimensionName` stands for any dimension. Throws Failure if
// the name is unknown, unsuitable or ambiguous.
RatingChoice chooseRating(const RatingRegion& region, const std::string& given,
                          const std::string& dimensionName, RatingUse use);

// Returns the element of `named` with this name, else all elements whose names begin with it.
template <typename Named>
std::vector<const Named*> findNamed(const std::vector<Named>& named, const std::string& given) {
  const std::string wanted = plainName(given);
  std::vector<const Named*> found;
  if (wanted.empty()) return found;
  for (const Named& each : named) {
    const std::string name = plainName(each.name);
    if (name == wanted) return {&each};
    if (name.compare(0, wanted.size(), wanted) == 0) found.push_back(&each);
  }
  return found;
}

// Returns the only element of `found`. Throws Failure if there are several.
template <typename Named>
const Named& onlyOne(const std::vector<const Named*>& found, const std::string& given) {
  if (found.size() == 1) return *found.front();
  std::string names;
  for (const Named* each : found) names += (names.empty() ? "" : " or ") + each->name;
  throw Failure(kFailure, "'" + given + "' may be " + names);
}

}  // namespace apps::tv

#endif  // ATSC_TV_PARENTAL_RATING_CHOICE_H_
