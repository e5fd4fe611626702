#include "parental/viewing.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/parental.h"
#include "guide/guide.h"
#include "guide/guide_view.h"
#include "service/receiver_clock.h"

namespace apps::tv {
namespace {

// Guides arrive once a second.
constexpr std::chrono::milliseconds kRatingWait(2500);
constexpr std::chrono::milliseconds kPause(100);

std::optional<Programme> programmeNow(const CommonOptions& common, const Channel& channel) {
  const int64_t now = readClock(Client(false)).utc;
  try {
    const std::vector<Programme> programmes =
        readProgrammes(common.eventDatabase(), *channel.source, channel.key(), now, 1);
    if (!programmes.empty() && programmes.front().start <= now) return programmes.front();
  } catch (const std::runtime_error&) {
    // The title is not needed to report whether the programme is blocked.
  }
  return std::nullopt;
}

}  // namespace

Viewing askViewing(const Client& client) {
  const Json::Value reply = client.ask(command("PC", "ISPCBLOCKED"));
  return reply["blocked"] == true               ? Viewing::kBlocked
         : reply["status"] == "VIEWING_UNRATED" ? Viewing::kUnrated
                                                : Viewing::kAllowed;
}

Viewing askFirstViewing(const CommonOptions& common, const Channel& channel) {
  using Clock = std::chrono::steady_clock;
  Viewing viewing = askViewing(common.client());
  if (viewing != Viewing::kUnrated) return viewing;
  // Until the receiver has read the guide again, the database knows more than the receiver does.
  const std::optional<Programme> programme = programmeNow(common, channel);
  if (!programme || !programme->isRated()) return viewing;
  const Clock::time_point end = Clock::now() + kRatingWait;
  while (viewing == Viewing::kUnrated && Clock::now() < end) {
    std::this_thread::sleep_for(kPause);
    viewing = askViewing(Client(false));
  }
  return viewing;
}

ViewingWords viewingWords(const CommonOptions& common, const Channel& channel, Viewing viewing) {
  const std::optional<Programme> programme = programmeNow(common, channel);
  const std::string rating = programme && programme->isRated() ? programme->rating : "";
  ViewingWords words = {"what plays", "allowed"};
  if (programme) words.programme = titleOf(*programme);
  if (!rating.empty()) words.programme += " (" + rating + ')';
  if (viewing == Viewing::kUnrated) words.state = "not rated";
  // A verbose client would show every query for a name and hide the messages that matter.
  const Client quiet(false);
  if (viewing == Viewing::kBlocked) {
    const std::string reason = blockReason(readParental(quiet), rating);
    words.state = "blocked: " + (reason.empty() ? "the service's log says why" : reason);
    words.advice = "; atsc-tv unlock frees it";
  } else if (viewing == Viewing::kAllowed && !rating.empty() && isParentalEnabled(quiet)) {
    const std::string reason = blockReason(readParental(quiet), rating);
    words.unlocked = !reason.empty();
    if (words.unlocked) words.state = "would be blocked (" + reason + "), but is unlocked";
  }
  return words;
}

// No command reports whether a locked channel has been opened.
std::string lockWords(const Channel& channel) {
  if ((channel.flags & kLocked) == 0) return "";
  return "; the channel is locked and plays only after atsc-tv play " + channel.number() +
         " --unlocked or atsc-tv unlock";
}

}  // namespace apps::tv
