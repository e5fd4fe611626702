// The parts of the receiver that LiveTuner works with.
#ifndef ATSC_HOST_RECEIVER_TUNERS_TUNER_ENVIRONMENT_H_
#define ATSC_HOST_RECEIVER_TUNERS_TUNER_ENVIRONMENT_H_

#include <functional>

#include "receiver/air/air.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/clock.h"
#include "receiver/station/guide.h"
#include "receiver/station/service_list.h"
#include "receiver/viewing/rating_regions.h"

namespace atschost {

// The parts outlive the tuner.
struct TunerEnvironment {
  const Air& air;
  Clock& clock;
  ServiceList& services;
  Guide& guide;
  RatingRegions& regions;
  const AlertSettings& alertSettings;
  EventQueue& events;
  const std::function<void()> servicesChanged;  // as in LiveTuner's constructor
  const std::function<void()> looked;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_TUNER_ENVIRONMENT_H_
