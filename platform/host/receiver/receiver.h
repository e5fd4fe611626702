// The receiver: what the middleware's modules share.
#ifndef ATSC_HOST_RECEIVER_RECEIVER_H_
#define ATSC_HOST_RECEIVER_RECEIVER_H_

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "aiaud.h"
#include "aife.h"
#include "aifw.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/audio.h"
#include "receiver/station/clock.h"
#include "receiver/station/guide.h"
#include "receiver/station/service_list.h"
#include "receiver/station/state_file.h"
#include "receiver/tuners/guide_tuner.h"
#include "receiver/tuners/live_tuner.h"
#include "receiver/tuners/scanner.h"
#include "receiver/viewing/gate.h"
#include "receiver/viewing/parental.h"
#include "receiver/viewing/rating_regions.h"

namespace atschost {

// One tuner for playing and scanning, one for the guide; one service list, one play path. Any
// thread. Functions that return a bool: false on failure, with nothing changed. Only those that
// store something wait for the disk.
class Receiver {
 public:
  Receiver(const std::string& stateFolder, const Air& air, Clock& clock);

  Clock& clock() { return clock_; }
  EventQueue& events() { return events_; }
  Guide& guide() { return guide_; }
  ServiceList& services() { return services_; }
  Scanner& scanner() { return scanner_; }
  RatingRegions& ratingRegions() { return ratingRegions_; }

  // Begins to keep the guide of the listed services.
  void start() { guideTuner_.start(); }

  // As AIFW_register_frmwrk_app_cb. Who begins to listen is told what the guide has.
  void setCallback(AIFW_app_callback callback);

  bool playFirst(uint32_t source, uint32_t frequency);
  bool playSource(uint32_t source);
  bool changeChannel(const AIFW_channel_change_request& request);
  void stopPlaying();
  // Leaves the carrier as well.
  void stopTuning();
  // As AIFW_handle_tuner_mode_change.
  bool followTuner(uint32_t source);
  void closePicture();

  // As AIFW_powerTransition_request.
  bool enterStandby();
  void leaveStandby();

  // Of the service list, as AIFW_modify_service, AISRV_reset_db and RMGRReload.
  bool addService(const AISRV_service_info& record);
  bool modifyService(const AISRV_service_info& record);
  bool resetServices(uint32_t source);
  bool reloadServices();

  // The viewer's choice for the current service, from 1.
  bool chooseAudio(uint8_t track);
  // The audio track that plays, from 1; 0 when nothing is heard.
  uint8_t audioTrack() const;
  AudioLanguages audioLanguages() const;
  // AICN_LANGUAGE_*.
  bool setAudioLanguage(int32_t AudioLanguages::*which, int32_t language);
  // AIAUD_DUAL_*. False also, with the mode in force, when it cannot be stored.
  bool setDualMode(uint32_t mode);
  // Of alerts, as the functions of AIFW. Setting is false also, with the value in force, when it
  // cannot be stored.
  int32_t alertSetting(int32_t AlertSettings::Values::*which) const;
  bool setAlertSetting(int32_t AlertSettings::Values::*which, int32_t value);
  // As AIPC_collect_RRT.
  bool collectRatingRegions() { return guideTuner_.beginRound(); }

  // The service that played last on the current source, as it is listed now. One that is no longer
  // listed is none, unless it still plays: it is as it was then.
  std::optional<Service> current() const;
  uint32_t currentSource() const;
  // The source that the tuner is set to, by whomever.
  uint32_t tunerSource() const;
  bool isPlaying() const;
  AIFE_tuning_details tuning() const;

  void setSkipPlay(bool skip);
  // As the functions of AIFW; of parental control, too.
  void setPasswordRequired(bool required);
  void setPasswordGiven(bool given);
  bool setUnlocked(bool unlocked);
  void setPlayFromApplication(bool fromApplication);

  // The settings of parental control. As AIPC says of its functions: what is changed is in force at
  // once and told.
  Parental& parental() { return parental_; }
  bool changeParental(const std::function<bool(ParentalSettings&)>& edit);
  // What of a guide is blocked under the present settings.
  std::function<bool(const GuideEvent&)> blockedEvents() const;

  // What is on now on a service.
  struct OnNow {
    ProgrammeId programme;   // with the ratings that count
    bool byStreams = false;  // the service's streams rate it, not the guide
    bool enabled = false;    // parental control
    bool unlocked = false;   // it plays, and the viewer gave the password
    RatingVerdict verdict;
  };
  // By service id; none for one that is not listed and does not play.
  std::optional<OnNow> onNow(const AISRV_service_id& id) const;

  // Writes to the log what is under way.
  void display() const;

  // Ends the threads, at exit: waits for callbacks a moment only.
  void shutDown();

  // Takes the settings as they are now, for the next syncSettings().
  void storeSettings();
  bool syncSettings();
  // Both.
  bool keepSettings();

 private:
  struct Settings {
    uint32_t source = AI_INPUT_TERRESTRIAL;
    std::map<uint32_t, ServiceKey> last;  // by source: what played last
    AudioLanguages languages;
    uint32_t dualMode = AIAUD_DUAL_STEREO;
    // Only of what is stored: the clock and the alerts have their own.
    Clock::Setting clock;
    AlertSettings::Values alerts;
  };

  void loadSettings(const Json::Value& content);
  void tunedByScan(uint32_t source, uint32_t frequency);
  bool isInStandby(const char* refused) const;
  bool play(const Service& service);
  void fail(bool known);
  void stopLocked();
  void decideStreams();
  void decideStreamsLocked(const Service& service);
  const Service* playingLocked();
  void look(bool asked);
  bool lookLocked(const Service& service, bool asked);
  OnNow onNow(const Service& service) const;
  KnownRegions knownRegions() const;
  std::string whyBlocked(const RatingVerdict& verdict) const;
  void raiseWholeGuide(uint32_t source);
  void learnedRegion();
  void takeGuide(uint32_t source, uint32_t frequency, CarrierResult& found,
                 Scanner::Outcome& outcome);
  void report(const Scanner::Outcome& outcome);

  const Air& air_;
  Clock& clock_;
  mutable std::mutex mutex_;  // of the fields up to fileMutex_; taken before the list's
  Settings settings_;
  Settings settingsToStore_;
  bool playing_ = false;
  Service played_;  // what plays, or played, as it was listed last
  bool standby_ = false;
  bool pictureOpen_ = true;
  uint8_t audioTrack_ = 0;
  std::string streamsTold_;  // of the service that plays
  uint32_t tunerSource_ = AI_INPUT_TERRESTRIAL;
  AIFE_tuning_details tuning_{};
  bool skipPlay_ = false;  // services do not start by themselves
  Gate gate_;

  std::mutex fileMutex_;  // of the file; taken before mutex_, which is not held while it is written
  StateFile settingsFile_;

  EventQueue events_;
  Guide guide_;
  RatingRegions ratingRegions_;
  AlertSettings alertSettings_;
  Parental parental_;
  ServiceList services_;
  Scanner::Outcome guideRound_;  // the guide tuner's
  // Last: their threads use all above.
  LiveTuner liveTuner_;
  GuideTuner guideTuner_;
  Scanner scanner_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_RECEIVER_H_
