// The JSON document with the limits of a rating region.
#ifndef ATSC_TV_PARENTAL_RATING_DOCUMENT_H_
#define ATSC_TV_PARENTAL_RATING_DOCUMENT_H_

#include <json/value.h>

#include "parental/ratings.h"

namespace tv {

// Dimensions of the regions with a fixed meaning (CEA-766), whatever their tables call them.
struct FixedDimension {
  int number;
  const char* object;  // of the rating document
  const char* level;
  int firstLimit;
  int lastLimit;
};

// Whether the dimensions of a region have a fixed meaning.
bool isFixedRegion(int region);

// A dimension of such a region, null when there is none.
const FixedDimension* fixedDimension(int region, int dimension);

// The UnratedGroupNumber of a value.
int unratedGroupOf(int region, int dimension, int value);

// Whether the rating document blocks a value that is a limit.
bool isBlocked(const Json::Value& limits, int region, int dimension, int value);

// The value that has this one blocked whatever is done with it; null when there is none.
const RatingValue* keeperOf(const RatingRegion& region, const Rated& rated);

// The rating document that changes what differs between two of a region and leaves all else as it
// is in force.
Json::Value changesOf(const Json::Value& before, const Json::Value& after);

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_RATING_DOCUMENT_H_
