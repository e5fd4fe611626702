// Parental control as the service knows it, by name: what is blocked, and why.
#ifndef ATSC_TV_PARENTAL_PARENTAL_H_
#define ATSC_TV_PARENTAL_PARENTAL_H_

#include <array>
#include <string>
#include <vector>

#include "parental/ratings.h"
#include "service/client.h"

namespace tv {

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

// What a rating text such as "TV-14-D-V, PG-13" has that is blocked, for people; empty when nothing
// of it is, or is known.
std::string blockReason(const Parental& parental, const std::string& rating);

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_PARENTAL_H_
