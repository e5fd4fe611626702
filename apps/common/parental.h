// The parental control settings of the service.
#ifndef ATSC_APPS_COMMON_PARENTAL_H_
#define ATSC_APPS_COMMON_PARENTAL_H_

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "common/ratings.h"

namespace apps {

struct Parental {
  bool enabled;
  std::array<bool, kUnratedGroups.size()> groups;  // whether the group is blocked
  std::vector<RatingRegion> regions;  // the region in force, then other regions with limits
};

struct KnownRegion {
  int number;
  std::string name;
};

// Sends a command whose reply is a JSON object and returns that object. Throws if there is none.
using Ask = std::function<Json::Value(const Json::Value& command)>;

// These functions throw what `ask` throws.
Parental readParental(const Ask& ask);
bool isParentalEnabled(const Ask& ask);
int regionInForce(const Ask& ask);
std::vector<KnownRegion> knownRegions(const Ask& ask);
RatingRegion readRatingRegion(const Ask& ask, int number);

// A part of a rating that is blocked.
struct BlockReason {
  std::string name;   // "TV-14"
  std::string words;  // "TV-14, the limit is TV-PG", "V (Violence)"
};

// Returns which parts of a rating text such as "TV-14-D-V, PG-13" are blocked, as far as known.
std::vector<BlockReason> blockReasons(const Parental& parental, const std::string& rating);

// Describes which parts of a rating text such as "TV-14-D-V, PG-13" are blocked. Returns an empty
// text if no part is known to be blocked.
std::string blockReason(const Parental& parental, const std::string& rating);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_PARENTAL_H_
