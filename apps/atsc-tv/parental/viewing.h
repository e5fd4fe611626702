// Reports whether the viewer may watch the playing programme.
#ifndef ATSC_TV_PARENTAL_VIEWING_H_
#define ATSC_TV_PARENTAL_VIEWING_H_

#include <string>

#include "channels/channel.h"
#include "service/client.h"
#include "service/common_options.h"

namespace apps::tv {

enum class Viewing { kAllowed, kBlocked, kUnrated };

Viewing askViewing(const Client& client);

// Returns the same shortly after a channel change; waits for the guide of the new channel if
// needed.
Viewing askFirstViewing(const CommonOptions& common, const Channel& channel);

struct ViewingWords {
  std::string programme;  // "The Long Lock (TV-14-D-V)"; "what plays" if not known
  std::string state;      // "blocked: TV-14, the limit is TV-PG", "not rated", "allowed";
                          // "would be blocked (TV-14, ...), but is unlocked"
  bool unlocked = false;
  std::string advice = "";  // to append to sentence(): how to unblock the programme; may be empty

  std::string sentence() const { return programme + (unlocked ? " " : " is ") + state; }
};

// Describes the programme that is playing on the current channel and whether it is blocked.
ViewingWords viewingWords(const CommonOptions& common, const Channel& channel, Viewing viewing);

// Returns a remark to append to a sentence about a locked channel; empty for other channels.
std::string lockWords(const Channel& channel);

}  // namespace apps::tv

#endif  // ATSC_TV_PARENTAL_VIEWING_H_
