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

// Plays one service at a time, and withholds locked and blocked content from the viewer. Any
// thread. On failure a function that returns a bool returns false and leaves the playing service as
// it is.
class Player {
 public:
  Player(const Air& air, Settings& settings, ServiceList& services, const Guide& guide,
         const Viewing& viewing, EventQueue& events, LiveTuner& tuner);

  bool playFirst(uint32_t source, uint32_t frequency);
  bool playSource(uint32_t source);
  bool changeChannel(const AIFW_channel_change_request& request);
  void stopPlaying();
  // Stops playing and leaves the carrier.
  void stopTuning();
  // See AIFW_handle_tuner_mode_change().
  bool followTuner(uint32_t source);
  // Called when a scan tunes to a frequency.
  void tunedByScan(uint32_t source, uint32_t frequency);
  // Stops playing on the source and runs `change`. No service starts to play before the call
  // returns.
  void stopFor(uint32_t source, const std::function<void()>& change);
  void closePicture();

  // See AIFW_powerTransition_request(). The caller stores the state.
  void enterStandby();
  void leaveStandby();

  // Returns the service that played last on the current source, as listed now. Returns nullopt if
  // it is no longer listed and does not play.
  std::optional<Service> current() const;
  // Returns the source that playing or a scan has set the tuner to.
  uint32_t tunerSource() const;
  bool isPlaying() const;
  AIFE_tuning_details tuning() const;

  // Selects the audio track of the current service, from 1.
  bool chooseAudio(uint8_t track);
  // Returns the track that is output, from 1; 0 for none.
  uint8_t audioTrack() const;
  bool setAudioLanguage(int32_t AudioLanguages::*which, int32_t language);
  // Also returns false, but with the mode in force, if the mode cannot be stored.
  bool setDualMode(uint32_t mode);

  // See the functions of AIFW and AICN.
  void setPasswordRequired(bool required);
  void setPasswordGiven(bool given);
  bool setUnlocked(bool unlocked);
  void setPlayFromApplication(bool fromApplication);

  // Checks the current programme, on behalf of the viewer (`asked`) or because it may have changed.
  void look(bool asked);
  // Updates the streams that are output, after a change of the service or of the settings.
  void decideStreams();
  // Returns nullopt if the service is not listed and does not play.
  std::optional<OnNow> onNow(const AISRV_service_id& id) const;

  // Logs the state of the tuner.
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
  Service played_ GUARDED_BY(mutex_);  // the service that plays or played last, as last listed
  bool standby_ GUARDED_BY(mutex_) = false;
  bool pictureOpen_ GUARDED_BY(mutex_) = true;
  uint8_t audioTrack_ GUARDED_BY(mutex_) = 0;
  std::string logged_ GUARDED_BY(mutex_);  // log text of the current presentation
  uint32_t tunerSource_ GUARDED_BY(mutex_);
  AIFE_tuning_details tuning_ GUARDED_BY(mutex_){};
  Gate gate_ GUARDED_BY(mutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_PLAYER_H_
