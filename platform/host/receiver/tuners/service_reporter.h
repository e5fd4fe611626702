// Takes the services of the tuned carrier over into the service list.
#ifndef ATSC_HOST_RECEIVER_TUNERS_SERVICE_REPORTER_H_
#define ATSC_HOST_RECEIVER_TUNERS_SERVICE_REPORTER_H_

#include <cstddef>
#include <utility>
#include <vector>

#include "receiver/station/service.h"
#include "receiver/tuners/carrier_follower.h"
#include "receiver/tuners/tuning.h"

namespace atschost {

// One thread.
class ServiceReporter {
 public:
  ServiceReporter(Tuning& tuning, CarrierFollower& follower)
      : tuning_(tuning), follower_(follower) {}

  // Updates the service list if more is known than at the last call, and raises the events of the
  // changes.
  void update(const StreamReader& reader);

  // Updates the ratings of the programmes that are on from the PMTs.
  void updateAdvisories(StreamPosition position);

 private:
  bool mayReplace(const std::vector<Service>& found) const;
  void raise(const ServiceList::Change& change);

  Tuning& tuning_;
  CarrierFollower& follower_;
  unsigned round_ = 0;       // Tuning::serviceRounds() at the last update
  unsigned generation_ = 0;  // of the follower, for advisories_
  // Number of PMTs at the last update of the advisories, and whether they were all.
  std::pair<size_t, bool> advisories_ = {};
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_SERVICE_REPORTER_H_
