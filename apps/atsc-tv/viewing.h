// Whether the viewer may see what plays.
#ifndef ATSC_TV_VIEWING_H_
#define ATSC_TV_VIEWING_H_

#include <string>

#include "channel.h"
#include "client.h"
#include "commands.h"

namespace tv {

enum class Viewing { kAllowed, kBlocked, kUnrated };

Viewing askViewing(const Client& client);

// The same a moment after a channel change, when the new channel's guide may be on its way.
Viewing askFirstViewing(const CommonOptions& common, const Channel& channel);

struct ViewingWords {
  std::string programme;  // "The Long Lock (TV-14-D-V)"; "what plays" when it is not known
  std::string state;      // "blocked: TV-14, the limit is TV-PG", "not rated", "allowed"

  std::string sentence() const { return programme + " is " + state; }
};

// What is to be said of what plays on the current channel.
ViewingWords viewingWords(const CommonOptions& common, const Channel& channel, Viewing viewing);

}  // namespace tv

#endif  // ATSC_TV_VIEWING_H_
