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
  void set_password_required(bool required);
  void set_password_given(bool given);
  void set_play_from_application(bool from_application) { from_application_ = from_application; }
  bool set_unlocked(bool unlocked);

  // The channel that the password may have been given for cannot be played.
  void fail() { password_given_ = false; }

  // A service begins to play; again, if it is the one that plays.
  void begin(bool locked);
  void stop() { playing_ = {}; }
  // Standby begins: no password given before counts.
  void forget();

  // The lock of what plays as it is listed.
  void set_locked(bool locked);

  // What plays was looked at; `why` is empty unless it is blocked under the settings. What comes of
  // a look at the air at any time, not of something that the viewer did (`asked`), is told no more
  // than once a second, but for a block after none; a later look makes up for it. Whether anything
  // else is kept away than before.
  bool judge(ProgrammeId programme, std::string why, bool asked, Instant at);

  bool is_unlocked() const { return playing_ && playing_->unlocked; }
  bool is_closed() const;
  // Empty when it is not blocked.
  std::string why_blocked() const { return playing_ ? playing_->why_blocked : std::string(); }

 private:
  struct Finding {
    ProgrammeId programme;
    std::string why;
  };
  struct Playing {
    bool locked = false;      // as listed
    bool lock_holds = false;  // that lock keeps it closed
    bool opened = false;      // by the password for the channel
    bool unlocked = false;    // by the password for what plays
    std::optional<Finding> finding;
    std::optional<ProgrammeId> told;  // the programme that was told to be blocked
    std::string why_blocked;
    Instant next_tell{};  // not unasked before
  };

  void tell_lock();

  const std::function<void(AFW_event_t)> raise_;
  bool password_required_ = true;
  bool password_given_ = false;  // for the service about to play
  bool from_application_ = false;
  std::optional<Playing> playing_;
  // The last event of each kind, of whatever played.
  bool told_closed_ = false;
  bool told_blocked_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_GATE_H_
