// The play path.
#ifndef ATSC_HOST_RECEIVER_CONTROL_PLAYER_H_
#define ATSC_HOST_RECEIVER_CONTROL_PLAYER_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "aife.h"
#include "aifw.h"
#include "process/mutex.h"
#include "receiver/air/air.h"
#include "receiver/control/settings.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/service_list.h"
#include "receiver/tuners/live_tuner.h"
#include "receiver/viewing/gate.h"
#include "receiver/viewing/viewing.h"

namespace atschost {

// Plays one service at a time, and keeps from the viewer what is locked or blocked. Any thread.
// Functions that return a bool: false on failure, with nothing changed.
class Player {
 public:
  Player(const Air& air, Settings& settings, ServiceList& services, const Guide& guide,
         const Viewing& viewing, EventQueue& events, LiveTuner& tuner);

  bool playFirst(uint32_t source, uint32_t frequency);
  bool playSource(uint32_t source);
  bool changeChannel(const AIFW_channel_change_request& request);
  void stopPlaying();
  // Leaves the carrier, too.
  void stopTuning();
  // As AIFW_handle_tuner_mode_change.
  bool followTuner(uint32_t source);
  // A scan takes the tuner.
  void tunedByScan(uint32_t source, uint32_t frequency);
  // Stops what plays on the source and runs `change`; nothing begins to play before it returns.
  void stopFor(uint32_t source, const std::function<void()>& change);
  void closePicture();

  // As AIFW_powerTransition_request; what is to be stored is the caller's affair.
  void enterStandby();
  void leaveStandby();

  // The service that played last on the current source, as it is listed now. None if it is no
  // longer listed and does not play.
  std::optional<Service> current() const;
  // The source that the tuner is set to, by playing or by a scan.
  uint32_t tunerSource() const;
  bool isPlaying() const;
  AIFE_tuning_details tuning() const;

  // The viewer's choice for the current service, from 1.
  bool chooseAudio(uint8_t track);
  // The track that is heard, from 1; 0 for none.
  uint8_t audioTrack() const;
  bool setAudioLanguage(int32_t AudioLanguages::*which, int32_t language);
  // Returns false also, with the mode in force, if it cannot be stored.
  bool setDualMode(uint32_t mode);

  // As the functions of AIFW and AICN.
  void setPasswordRequired(bool required);
  void setPasswordGiven(bool given);
  bool setUnlocked(bool unlocked);
  void setPlayFromApplication(bool fromApplication);

  // Looks at what is on now, on behalf of the viewer (`asked`) or because it may have changed.
  void look(bool asked);
  // Decides anew what is seen and heard: the service or the settings may have changed.
  void decideStreams();
  // Returns nullopt if the service is not listed and does not play.
  std::optional<OnNow> onNow(const AISRV_service_id& id) const;

  // Writes to the log what plays.
  void display() const;

 private:
  bool isInStandby(const char* refused) const;
  bool play(const Service& chosen);
  void fail(bool known);
  void stop() REQUIRES(mutex_);
  const Service* playing() REQUIRES(mutex_);
  bool look(const Service& service, bool asked) REQUIRES(mutex_);
  void decideStreams(const Service& service) REQUIRES(mutex_);
  OnNow onNow(const Service& service) const;

  const Air& air_;
  Settings& settings_;
  ServiceList& services_;
  const Guide& guide_;
  const Viewing& viewing_;
  EventQueue& events_;
  LiveTuner& tuner_;

  mutable Mutex mutex_;
  bool playing_ GUARDED_BY(mutex_) = false;
  Service played_ GUARDED_BY(mutex_);  // what plays, or played, as it was listed last
  bool standby_ GUARDED_BY(mutex_) = false;
  bool pictureOpen_ GUARDED_BY(mutex_) = true;
  uint8_t audioTrack_ GUARDED_BY(mutex_) = 0;
  std::string logged_ GUARDED_BY(mutex_);  // of the presentation of what plays
  uint32_t tunerSource_ GUARDED_BY(mutex_);
  AIFE_tuning_details tuning_ GUARDED_BY(mutex_){};
  Gate gate_ GUARDED_BY(mutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_PLAYER_H_
