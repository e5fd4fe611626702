// The parental control settings of the service.
#ifndef ATSC_TV_PARENTAL_PARENTAL_H_
#define ATSC_TV_PARENTAL_PARENTAL_H_

#include <array>
#include <string>
#include <vector>

#include "parental/ratings.h"
#include "service/client.h"

namespace apps::tv {

struct Parental {
  bool enabled;
  std::array<bool, kUnratedGroups.size()> groups;  // whether the group is blocked
  std::vector<RatingRegion> regions;  // the region in force, then other regions with limits
};

struct KnownRegion {
  int number;
  std::string name;
};

// These functions throw Failure if the service does not reply.
Parental readParental(const Client& client);
bool isParentalEnabled(const Client& client);
int regionInForce(const Client& client);
std::vector<KnownRegion> knownRegions(const Client& client);
RatingRegion readRatingRegion(const Client& client, int number);

// Describes which parts of a rating text such as "TV-14-D-V, PG-13" are blocked. Returns an empty
// text if no part is known to be blocked.
std::string blockReason(const Parental& parental, const std::string& rating);

}  // namespace apps::tv

#endif  // ATSC_TV_PARENTAL_PARENTAL_H_
