// What keeps the service that plays from the viewer: its lock, and a blocked programme.
#ifndef ATSC_HOST_RECEIVER_VIEWING_GATE_H_
#define ATSC_HOST_RECEIVER_VIEWING_GATE_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "aifw.h"
#include "receiver/tables/content_advisory.h"

namespace atschost {

// What tells one programme of a service from the next one.
struct ProgrammeId {
  std::vector<Advisory> advisories;
  std::optional<std::pair<uint16_t, uint32_t>> event;  // event_id and start, where the guide has it

  bool same(const ProgrammeId& other) const {
    return event && other.event ? event == other.event : advisories == other.advisories;
  }
};

// Raises AFW_CHANNEL_LOCKED and _UNLOCKED, AFW_PARENTAL_BLOCKED and _UNBLOCKED as aifw.h says. The
// caller serialises all calls.
class Gate {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  explicit Gate(std::function<void(AFW_event_t)> raise) : raise_(std::move(raise)) {}

  // As the functions of AIFW and AICN.
  void setPasswordRequired(bool required);
  void setPasswordGiven(bool given);
  void setPlayFromApplication(bool fromApplication) { fromApplication_ = fromApplication; }
  bool setUnlocked(bool unlocked);

  // The channel that the password may have been given for cannot be played.
  void fail() { passwordGiven_ = false; }

  // A service begins to play; again, if it is the one that plays.
  void begin(bool locked);
  void stop() { playing_ = {}; }
  // Standby begins: no password given before counts.
  void forget();

  // The lock of what plays as it is listed.
  void setLocked(bool locked);

  // What plays was looked at; `why` is empty unless it is blocked under the settings. What comes of
  // a look at the air at any time, not of something that the viewer did (`asked`), is told no more
  // than once a second, but for a block after none; a later look makes up for it. Whether anything
  // else is kept away than before.
  bool judge(ProgrammeId programme, std::string why, bool asked, Instant at);

  bool isUnlocked() const { return playing_ && playing_->unlocked; }
  bool isClosed() const;
  // Empty when it is not blocked.
  std::string whyBlocked() const { return playing_ ? playing_->whyBlocked : std::string(); }

 private:
  struct Finding {
    ProgrammeId programme;
    std::string why;
  };
  struct Playing {
    bool locked = false;     // as listed
    bool lockHolds = false;  // that lock keeps it closed
    bool opened = false;     // by the password for the channel
    bool unlocked = false;   // by the password for what plays
    std::optional<Finding> finding;
    std::optional<ProgrammeId> told;  // the programme that was told to be blocked
    std::string whyBlocked;
    Instant nextTell{};  // not unasked before
  };

  void tellLock();

  const std::function<void(AFW_event_t)> raise_;
  bool passwordRequired_ = true;
  bool passwordGiven_ = false;  // for the service about to play
  bool fromApplication_ = false;
  std::optional<Playing> playing_;
  // The last event of each kind, of whatever played.
  bool toldClosed_ = false;
  bool toldBlocked_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_GATE_H_
