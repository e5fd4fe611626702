// Decides whether the playing service is withheld from the viewer: its lock, and blocked
// programmes.
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

// Identifies a programme of a service.
struct ProgrammeId {
  std::vector<Advisory> advisories;
  std::optional<std::pair<uint16_t, uint32_t>> event;  // event_id and start, if in the guide

  bool same(const ProgrammeId& other) const {
    return event && other.event ? event == other.event : advisories == other.advisories;
  }
};

// Raises AFW_CHANNEL_LOCKED and _UNLOCKED, AFW_PARENTAL_BLOCKED and _UNBLOCKED as described in
// aifw.h. The caller serialises all calls.
class Gate {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  explicit Gate(std::function<void(AFW_event_t)> raise) : raise_(std::move(raise)) {}

  // See the functions of AIFW and AICN.
  void setPasswordRequired(bool required);
  void setPasswordGiven(bool given);
  void setPlayFromApplication(bool fromApplication) { fromApplication_ = fromApplication; }
  bool setUnlocked(bool unlocked);

  // Called when the channel that the password may have been given for cannot be played.
  void fail() { passwordGiven_ = false; }

  // Called when a service starts to play, or starts again.
  void begin(bool locked);
  void stop() { playing_ = {}; }
  // Called when standby begins: forgets passwords given before.
  void forget();

  // Sets the lock of the playing service, as listed.
  void setLocked(bool locked);

  // Handles a check of the playing programme. `why` is empty unless the settings block it. `asked`
  // is true after an action of the viewer. Unless `asked`, raises at most one event per second; a
  // later check raises a delayed event. A new block is never delayed. Returns whether different
  // streams are now withheld.
  bool judge(ProgrammeId programme, std::string why, bool asked, Instant at);

  bool isUnlocked() const { return playing_ && playing_->unlocked; }
  bool isClosed() const;
  // Returns the reason of a block, empty when the programme is not blocked.
  std::string whyBlocked() const { return playing_ ? playing_->whyBlocked : std::string(); }

 private:
  struct Finding {
    ProgrammeId programme;
    std::string why;
  };
  struct Playing {
    bool locked = false;     // as listed
    bool lockHolds = false;  // the lock withholds the service
    bool opened = false;     // by the password for the channel
    bool unlocked = false;   // by the password for the programme
    std::optional<Finding> finding;
    std::optional<ProgrammeId> reported;  // the programme of the last AFW_PARENTAL_BLOCKED
    std::string whyBlocked;
    Instant nextEvent{};  // earliest time of an event unless `asked`
  };

  void raiseLock();

  const std::function<void(AFW_event_t)> raise_;
  bool passwordRequired_ = true;
  bool passwordGiven_ = false;  // for the next service
  bool fromApplication_ = false;
  std::optional<Playing> playing_;
  // The last event of each kind, for any service.
  bool lastRaisedClosed_ = false;
  bool lastRaisedBlocked_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_GATE_H_
