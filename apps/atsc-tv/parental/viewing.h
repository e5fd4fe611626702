// Whether the viewer may see what plays.
#ifndef ATSC_TV_PARENTAL_VIEWING_H_
#define ATSC_TV_PARENTAL_VIEWING_H_

#include <string>

#include "channels/channel.h"
#include "service/client.h"
#include "service/common_options.h"

namespace tv {

enum class Viewing { kAllowed, kBlocked, kUnrated };

Viewing askViewing(const Client& client);

// The same a moment after a channel change, when the new channel's guide may be on its way.
Viewing askFirstViewing(const CommonOptions& common, const Channel& channel);

struct ViewingWords {
  std::string programme;  // "The Long Lock (TV-14-D-V)"; "what plays" when it is not known
  std::string state;      // "blocked: TV-14, the limit is TV-PG", "not rated", "allowed"; of what
                          // was unlocked "would be blocked (TV-14, ...), but is unlocked"
  bool unlocked = false;
  std::string advice = "";  // follows the sentence: how what is blocked is freed; may be empty

  std::string sentence() const { return programme + (unlocked ? " " : " is ") + state; }
};

// What is to be said of what plays on the current channel.
ViewingWords viewingWords(const CommonOptions& common, const Channel& channel, Viewing viewing);

// What follows a sentence about a channel that is locked; empty for others.
std::string lockWords(const Channel& channel);

}  // namespace tv

#endif  // ATSC_TV_PARENTAL_VIEWING_H_
