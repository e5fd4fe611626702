// The JSON document with the limits of a rating region.
#ifndef ATSC_APPS_COMMON_RATING_DOCUMENT_H_
#define ATSC_APPS_COMMON_RATING_DOCUMENT_H_

#include <json/value.h>

#include "common/ratings.h"

namespace apps {

// A dimension whose meaning CEA-766 fixes, whatever the rating table of its region calls it.
struct FixedDimension {
  int number;
  const char* object;  // the member of the rating document
  const char* level;
  int firstLimit;
  int lastLimit;
};

// Returns whether CEA-766 fixes the meaning of a region's dimensions.
bool isFixedRegion(int region);

// Returns a fixed dimension, or null if the region has no such dimension.
const FixedDimension* fixedDimension(int region, int dimension);

// Returns the UnratedGroupNumber of a value.
int unratedGroupOf(int region, int dimension, int value);

// Returns whether the rating document blocks a value, which must be a limit.
bool isBlocked(const Json::Value& limits, int region, int dimension, int value);

// Returns the value whose limit also blocks `rated`, even if the limits allow `rated` itself; null
// if there is none.
const RatingValue* keeperOf(const RatingRegion& region, const Rated& rated);

// Returns a rating document with the differences between two documents of a region. It leaves all
// other limits as they are.
Json::Value changesOf(const Json::Value& before, const Json::Value& after);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_RATING_DOCUMENT_H_
