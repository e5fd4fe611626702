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
#include "receiver/call.h"
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
  // The receiver of this process, made at the first call: a process that never calls the middleware
  // has no thread of it and touches no file. It is never destroyed; at exit its threads are ended.
  static Receiver& instance();

  // The same if it has been made, else null.
  static Receiver* existing();

  explicit Receiver(const std::string& state_folder);

  EventQueue& events() { return events_; }
  Guide& guide() { return guide_; }
  ServiceList& services() { return services_; }
  Scanner& scanner() { return scanner_; }
  RatingRegions& rating_regions() { return rating_regions_; }

  // Begins to keep the guide of the listed services.
  void start() { guide_tuner_.start(); }

  // As AIFW_register_frmwrk_app_cb. Who begins to listen is told what the guide has.
  void set_callback(AIFW_app_callback callback);

  bool play_first(uint32_t source, uint32_t frequency);
  bool play_source(uint32_t source);
  bool change_channel(const AIFW_channel_change_request& request);
  void stop_playing();
  // Leaves the carrier as well.
  void stop_tuning();
  // As AIFW_handle_tuner_mode_change.
  bool follow_tuner(uint32_t source);
  void close_picture();

  // As AIFW_powerTransition_request.
  bool enter_standby();
  void leave_standby();

  // Of the service list, as AIFW_modify_service, AISRV_reset_db and RMGRReload.
  bool add_service(const AISRV_service_info& record);
  bool modify_service(const AISRV_service_info& record);
  bool reset_services(uint32_t source);
  bool reload_services();

  // The viewer's choice for the current service, from 1.
  bool choose_audio(uint8_t track);
  // The audio track that plays, from 1; 0 when nothing is heard.
  uint8_t audio_track() const;
  AudioLanguages audio_languages() const;
  // AICN_LANGUAGE_*.
  bool set_audio_language(int32_t AudioLanguages::*which, int32_t language);
  // AIAUD_DUAL_*. False also, with the mode in force, when it cannot be stored.
  bool set_dual_mode(uint32_t mode);
  // Of alerts, as the functions of AIFW. Setting is false also, with the value in force, when it
  // cannot be stored.
  int32_t alert_setting(int32_t AlertSettings::Values::*which) const;
  bool set_alert_setting(int32_t AlertSettings::Values::*which, int32_t value);
  // As AIPC_collect_RRT.
  bool collect_rating_regions() { return guide_tuner_.begin_round(); }

  // The service that played last on the current source, as it is listed now. One that is no longer
  // listed is none, unless it still plays: it is as it was then.
  std::optional<Service> current() const;
  uint32_t current_source() const;
  // The source that the tuner is set to, by whomever.
  uint32_t tuner_source() const;
  bool is_playing() const;
  AIFE_tuning_details tuning() const;

  void set_skip_play(bool skip);
  // As the functions of AIFW; of parental control, too.
  void set_password_required(bool required);
  void set_password_given(bool given);
  bool set_unlocked(bool unlocked);
  void set_play_from_application(bool from_application);

  // The settings of parental control. As AIPC says of its functions: what is changed is in force at
  // once and told.
  Parental& parental() { return parental_; }
  bool change_parental(const std::function<bool(ParentalSettings&)>& edit);
  // What of a guide is blocked under the present settings.
  std::function<bool(const GuideEvent&)> blocked_events() const;

  // What is on now on a service.
  struct OnNow {
    ProgrammeId programme;    // with the ratings that count
    bool by_streams = false;  // the service's streams rate it, not the guide
    bool enabled = false;     // parental control
    bool unlocked = false;    // it plays, and the viewer gave the password
    RatingVerdict verdict;
  };
  // By service id; none for one that is not listed and does not play.
  std::optional<OnNow> on_now(const AISRV_service_id& id) const;

  // Writes to the log what is under way.
  void display() const;

  // Takes the settings as they are now, for the next sync_settings().
  void store_settings();
  bool sync_settings();
  // Both.
  bool keep_settings();

 private:
  struct Settings {
    uint32_t source = AI_INPUT_TERRESTRIAL;
    std::map<uint32_t, ServiceKey> last;  // by source: what played last
    AudioLanguages languages;
    uint32_t dual_mode = AIAUD_DUAL_STEREO;
    // Only of what is stored: the clock and the alerts have their own.
    Clock::Setting clock;
    AlertSettings::Values alerts;
  };

  void load_settings(const Json::Value& content);
  void tuned_by_scan(uint32_t source, uint32_t frequency);
  bool is_in_standby(const char* refused) const;
  bool play(const Service& service);
  void fail(bool known);
  void stop_locked();
  void decide_streams();
  void decide_streams_locked(const Service& service);
  const Service* playing_locked();
  void look(bool asked);
  bool look_locked(const Service& service, bool asked);
  OnNow on_now(const Service& service) const;
  KnownRegions known_regions() const;
  std::string why_blocked(const RatingVerdict& verdict) const;
  void raise_whole_guide(uint32_t source);
  void learned_region();
  void take_guide(uint32_t source, uint32_t frequency, CarrierResult& found,
                  Scanner::Outcome& outcome);
  void report(const Scanner::Outcome& outcome);
  void shut_down();

  mutable std::mutex mutex_;  // of the fields up to file_mutex_; taken before the list's
  Settings settings_;
  Settings settings_to_store_;
  bool playing_ = false;
  Service played_;  // what plays, or played, as it was listed last
  bool standby_ = false;
  bool picture_open_ = true;
  uint8_t audio_track_ = 0;
  std::string streams_told_;  // of the service that plays
  uint32_t tuner_source_ = AI_INPUT_TERRESTRIAL;
  AIFE_tuning_details tuning_{};
  bool skip_play_ = false;  // services do not start by themselves
  Gate gate_;

  std::mutex
      file_mutex_;  // of the file; taken before mutex_, which is not held while it is written
  StateFile settings_file_;

  EventQueue events_;
  Guide guide_;
  RatingRegions rating_regions_;
  AlertSettings alert_settings_;
  Parental parental_;
  ServiceList services_;
  Scanner::Outcome guide_round_;  // the guide tuner's
  // Last: their threads use all above.
  LiveTuner live_tuner_;
  GuideTuner guide_tuner_;
  Scanner scanner_;
};

// Source number of a service id: 0 or 2 terrestrial, 1 or 3 cable; 0 for anything else.
uint32_t source_of_id(uint32_t input_source);

// Fills the record that a caller lends, name buffer included.
void copy_record(const Service& service, AISRV_service_info& record);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_RECEIVER_H_
