// The receiver: the objects that the middleware's modules share.
#ifndef ATSC_HOST_RECEIVER_RECEIVER_H_
#define ATSC_HOST_RECEIVER_RECEIVER_H_

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "receiver/air/air.h"
#include "receiver/control/player.h"
#include "receiver/control/service_editor.h"
#include "receiver/control/settings.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/clock.h"
#include "receiver/station/guide.h"
#include "receiver/station/service_list.h"
#include "receiver/tuners/guide_tuner.h"
#include "receiver/tuners/live_tuner.h"
#include "receiver/tuners/scanner.h"
#include "receiver/viewing/parental.h"
#include "receiver/viewing/rating_regions.h"
#include "receiver/viewing/viewing.h"

namespace atschost {

// Combines the parts of the receiver: one tuner for playing and scanning, one for the guide, one
// service list and one play path. Any thread.
class Receiver {
 public:
  // Loads the stored state of the folder; an empty name means no folder. `air` and `clock` must
  // outlive the receiver.
  Receiver(const std::string& stateFolder, const Air& air, Clock& clock);
  // Joins the threads first: they use parts that are destroyed before them.
  ~Receiver() { endThreads(std::nullopt); }

  Clock& clock() { return clock_; }
  EventQueue& events() { return events_; }
  Guide& guide() { return guide_; }
  ServiceList& services() { return services_; }
  ServiceEditor& serviceEditor() { return serviceEditor_; }
  Settings& settings() { return settings_; }
  RatingRegions& ratingRegions() { return ratingRegions_; }
  Parental& parental() { return parental_; }
  const Viewing& viewing() const { return viewing_; }
  Player& player() { return player_; }
  Scanner& scanner() { return scanner_; }

  // Starts to receive the guide of the listed services.
  void start() { guideTuner_.start(); }

  // See AIFW_register_frmwrk_app_cb(). Notifies a new callback of the guide that was received
  // before.
  void setCallback(AIFW_app_callback callback);

  // See AIFW_powerTransition_request().
  bool enterStandby();

  // Changes the settings of parental control for the functions of AIPC. Applies a change at once
  // and notifies the application. `edit` returns false to change nothing, and must not call this
  // object.
  bool changeParental(const std::function<bool(ParentalSettings&)>& edit);

  // See AIPC_collect_RRT().
  bool collectRatingRegions() { return guideTuner_.beginRound(); }

  // Logs the activities of the receiver.
  void display() const;

  // Ends the threads at exit. Waits only briefly for callbacks of the application.
  void shutDown();

 private:
  void refreshGuide();
  void learnedRegion();
  void takeGuide(uint32_t source, uint32_t frequency, CarrierResult& found,
                 Scanner::Outcome& outcome);
  void report(const Scanner::Outcome& outcome);
  void endGuideRound();
  void endThreads(std::optional<std::chrono::milliseconds> patience);

  Clock& clock_;
  EventQueue events_;
  Guide guide_;
  RatingRegions ratingRegions_;
  AlertSettings alertSettings_;
  Parental parental_;
  ServiceList services_;
  Settings settings_;
  Viewing viewing_;
  Scanner::Outcome guideRound_;  // used by the guide tuner's thread
  // The tuners' threads use all members above. Player and LiveTuner use each other.
  LiveTuner liveTuner_;
  Player player_;
  ServiceEditor serviceEditor_;
  GuideTuner guideTuner_;
  Scanner scanner_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_RECEIVER_H_
