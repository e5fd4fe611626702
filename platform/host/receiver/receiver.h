// The receiver: what the middleware's modules share.
#ifndef ATSC_HOST_RECEIVER_RECEIVER_H_
#define ATSC_HOST_RECEIVER_RECEIVER_H_

#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <string>

#include "aife.h"
#include "aifw.h"
#include "receiver/event_queue.h"
#include "receiver/guide.h"
#include "receiver/guide_tuner.h"
#include "receiver/live_tuner.h"
#include "receiver/log.h"
#include "receiver/rating_regions.h"
#include "receiver/scanner.h"
#include "receiver/service_list.h"
#include "receiver/state_file.h"

namespace atschost {

// One tuner for playing and scanning, one for the guide; one service list, one play path. Any
// thread. Functions that return a bool: false on failure, with nothing changed.
class Receiver {
 public:
  // The receiver of this process, made at the first call: a process that never calls the middleware
  // has no thread of it and touches no file. It is never destroyed; at exit its threads are ended.
  static Receiver& instance();

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
  bool change_channel(const AIFW_channel_change_request& request);
  void stop_playing();

  // The current service as it is listed now; none when it is no longer listed.
  std::optional<Service> current() const;
  uint32_t current_source() const;
  bool is_playing() const;
  AIFE_tuning_details tuning() const;

  void set_skip_play(bool skip);
  void set_password_required(bool required);
  void set_password_given(bool given);

  // Takes the settings as they are now, for the next sync_settings().
  void store_settings();
  bool sync_settings();

 private:
  struct Settings {
    uint32_t source;
    std::optional<ServiceKey> current;
  };

  void load_settings(const Json::Value& content);
  void tuned_by_scan(uint32_t source, uint32_t frequency);
  bool play(const Service& service);
  void raise_whole_guide(uint32_t source);
  void take_guide(uint32_t source, uint32_t frequency, CarrierResult& found,
                  Scanner::Outcome& outcome);
  void report(const Scanner::Outcome& outcome);
  void shut_down();

  mutable std::mutex mutex_;  // of the fields up to given_; taken before the list's
  Settings settings_;
  bool playing_ = false;
  AIFE_tuning_details tuning_{};
  bool skip_play_ = false;         // services do not start by themselves
  bool password_required_ = true;  // for a locked service that is not playing
  bool password_given_ = false;    // for the service about to play

  std::mutex file_mutex_;  // of the two below; taken before mutex_
  StateFile settings_file_;
  Settings settings_to_store_;

  EventQueue events_;
  Guide guide_;
  RatingRegions rating_regions_;
  ServiceList services_;
  Scanner::Outcome guide_round_;  // the guide tuner's
  // Last: their threads use all above.
  LiveTuner live_tuner_;
  GuideTuner guide_tuner_;
  Scanner scanner_;
};

// Runs the body of a middleware function, which returns whether it succeeded: nothing may be thrown
// out of these C functions.
template <typename Body>
int status_of(const char* function, Body body) noexcept {
  try {
    return body() ? 0 : -1;
  } catch (const std::exception& e) {
    log().Error("%s: %s", function, e.what());
    return -1;
  }
}

// Source number of a service id: 0 or 2 terrestrial, 1 or 3 cable; 0 for anything else.
uint32_t source_of_id(uint32_t input_source);

// Fills the record that a caller lends, name buffer included.
void copy_record(const Service& service, AISRV_service_info& record);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_RECEIVER_H_
