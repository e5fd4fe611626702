// What the television shows, as callbacks, replies and commands tell.
#ifndef ATSC_WEB_TELEVISION_VIEWING_STATE_H_
#define ATSC_WEB_TELEVISION_VIEWING_STATE_H_

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/audio_tracks.h"
#include "common/receiver_clock.h"
#include "common/source.h"
#include "television/receiver_time.h"
#include "television/scan_picture.h"

namespace web {

// What to ask the service, because something may have changed.
struct Questions {
  bool channel = false;    // SRV GETCUR, CN GETCURSRC
  bool viewing = false;    // PC ISPCBLOCKED
  bool reasons = false;    // the rating tables and limits, if something is blocked
  bool limits = false;     // these have changed since they were read
  bool clock = false;      // TIME GETCUR, GETSETTING
  bool languages = false;  // CN GETPREAUD
  bool captions = false;   // CC get_sar
  bool any() const { return channel || viewing || reasons || clock || languages || captions; }
};

// One thread. Callbacks that are lost, or that do not fit each other, make it wrong for a while,
// never unusable: the questions are asked again and again.
class ViewingState {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Playing { kNone, kChanging, kPlaying, kNoSignal, kStopped };

  // The current channel, as SRV GETCUR tells.
  struct Current {
    const apps::Source* source = &apps::kSources[0];
    int64_t major = 0;
    int64_t minor = 0;
    int64_t frequency = 0;
    std::string name;
    int64_t flags = 0;
    int64_t favourites = 0;
    int64_t row = 0;

    std::string key() const;
    std::string number() const;
  };

  // A new service: everything is to be asked, and what was seen of the old one is over.
  void reset();

  // A callback. Any JSON.
  void callback(const Json::Value& message, Clock::time_point now);
  // Before a command is sent, and after it was answered. Any JSON.
  void sending(const Json::Value& command, Clock::time_point now);
  void sent(const Json::Value& command, int result, Clock::time_point now);
  // Does what is due. Returns whether something has changed.
  bool tick(Clock::time_point now);
  std::optional<Clock::time_point> deadline() const;

  // Replies. Those of the wrong form count as missing.
  void channelIs(const Json::Value& current, const Json::Value& source);
  void viewingIs(const Json::Value& reply);
  void clockIs(const Json::Value& setting, const Json::Value& now, Clock::time_point asked,
               Clock::time_point answered);
  void languagesAre(const Json::Value& reply);
  void captionsAre(int result, const Json::Value& reply);

  // No other TV application is registered.
  bool getsCallbacks = false;
  Questions questions;
  // Tables of the databases that may have changed.
  bool channelsChanged = false;
  bool guideChanged = false;

  const std::optional<Current>& current() const { return current_; }
  const apps::Source& source() const { return *source_; }
  Playing playing() const { return playing_; }
  bool isStandby() const { return standby_; }
  bool isLocked() const { return locked_; }
  bool isProgrammeBlocked() const { return blocked_; }
  bool isUnlocked() const { return unlocked_; }
  // Counts the plays that a callback has reported.
  uint64_t plays() const { return plays_; }
  const ScanPicture& scan() const { return scan_; }
  const apps::PreferredLanguages& languages() const { return languages_; }
  const ReceiverTime& time() const { return time_; }

  // Parts of the state of the contract with the page.
  const char* playingName() const;
  Json::Value alert() const { return alert_; }
  Json::Value captions() const;
  Json::Value clock(Clock::time_point now) const;

 private:
  void change(Clock::time_point now);
  void stop();

  std::optional<Current> current_;
  const apps::Source* source_ = &apps::kSources[0];
  Playing playing_ = Playing::kNone;
  Clock::time_point changeEnds_ = {};  // of a change: then there is no signal
  bool standby_ = false;
  bool locked_ = false;
  bool blocked_ = false;
  bool unlocked_ = false;
  bool unlockAsked_ = false;  // the PIN was right since the channel began to play
  bool opensNext_ = false;    // the change that is under way opens a locked channel
  uint64_t plays_ = 0;
  Json::Value alert_;
  ScanPicture scan_;
  apps::PreferredLanguages languages_;
  std::optional<int> aspect_;
  apps::ReceiverClock setting_ = {};
  ReceiverTime time_;
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_VIEWING_STATE_H_
