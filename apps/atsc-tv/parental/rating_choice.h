// Ratings and groups by the names that users type.
#ifndef ATSC_TV_PARENTAL_RATING_CHOICE_H_
#define ATSC_TV_PARENTAL_RATING_CHOICE_H_

#include <string>
#include <vector>

#include "parental/ratings.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace tv {

// A value of a rating table, or an unrated group.
struct RatingChoice {
  const RatingDimension* dimension = nullptr;
  const RatingValue* value = nullptr;
  int group = kNoGroup;
};

// What a name is given for.
enum class RatingUse { kLimit, kBlock, kCheck };

// The names that can be given, as the end of a message.
std::string knownRatingNames(const RatingRegion& region, RatingUse use);

// What a name means; an empty dimension name stands for any. Throws Failure where that is not one
// thing.
RatingChoice chooseRating(const RatingRegion& region, const std::string& given,
                          const std::string& dimensionName, RatingUse use);

// Those of `named` that are called so: the one with that very name, else all that begin with it.
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

// The only one of `found`. Throws Failure where a name means several.
template <typename Named>
const Named& onlyOne(const std::vector<const Named*>& found, const std::string& given) {
  if (found.size() == 1) return *found.front();
  std::string names;
  for (const Named* each : found) names += (names.empty() ? "" : " or ") + each->name;
  throw Failure(kFailure, "'" + given + "' may be " + names);
}

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_RATING_CHOICE_H_
