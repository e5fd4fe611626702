// The current programme of a service and its parental control.
#ifndef ATSC_HOST_RECEIVER_VIEWING_VIEWING_H_
#define ATSC_HOST_RECEIVER_VIEWING_VIEWING_H_

#include <functional>
#include <string>
#include <vector>

#include "receiver/station/clock.h"
#include "receiver/station/guide.h"
#include "receiver/station/service.h"
#include "receiver/viewing/gate.h"
#include "receiver/viewing/parental.h"
#include "receiver/viewing/rating_regions.h"

namespace atschost {

// The current programme of a service.
struct OnNow {
  ProgrammeId programme;   // with the ratings that apply
  bool byStreams = false;  // the ratings are those of the PMT, not of the guide
  bool enabled = false;    // parental control is on
  bool unlocked = false;   // the service plays, and the viewer gave the password
  RatingVerdict verdict;
};

// Compares ratings with the settings of parental control. Any thread.
class Viewing {
 public:
  Viewing(const Clock& clock, const Guide& guide, const Parental& parental,
          const RatingRegions& regions);

  // Returns the current programme. `advisories` are those of the service's PMT. Leaves `unlocked`
  // false.
  OnNow onNow(const Service& service, std::vector<Advisory> advisories) const;

  // Returns the reason for the log, such as "TV-14 (region 1, Entire Audience)"; empty unless the
  // programme is blocked.
  std::string whyBlocked(const RatingVerdict& verdict) const;

  // Returns a test for events of the guide, with the current settings.
  std::function<bool(const GuideEvent&)> blockedEvents() const;

 private:
  KnownRegions knownRegions() const;

  const Clock& clock_;
  const Guide& guide_;
  const Parental& parental_;
  const RatingRegions& regions_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_VIEWING_H_
