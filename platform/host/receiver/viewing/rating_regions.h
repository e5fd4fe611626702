// The rating region tables that are known.
#ifndef ATSC_HOST_RECEIVER_VIEWING_RATING_REGIONS_H_
#define ATSC_HOST_RECEIVER_VIEWING_RATING_REGIONS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "process/mutex.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/state_file.h"
#include "receiver/tables/rating_region.h"

namespace atschost {

// The last table received of each region, also in an earlier run; before the first one what the
// standards say. Any thread.
class RatingRegions {
 public:
  // `learned` is told, without a lock, when a region becomes known.
  RatingRegions(const std::string& stateFolder, EventQueue& events,
                std::function<void()> learned = {});

  // Takes tables over and stores what is new, at once or, when something was stored a few seconds
  // ago, in a later call with or without tables. Each content of a region is reported once:
  // AFW_RRT_UPDATE for regions 1 and 2, else AFW_RRT_DOWNLOAD_UPDATE.
  void receive(std::vector<RatingRegionTable> tables);

  // Stores what is not stored yet. False on failure, which the log tells.
  bool store();

  // Null when the region is not known.
  std::shared_ptr<const RatingRegion> region(uint8_t number) const;

  // Those that are known, ascending.
  std::vector<uint8_t> numbers() const;

 private:
  struct Known {
    std::shared_ptr<const RatingRegion> region;
    std::vector<uint8_t> section;  // as received; empty: what the standard says
  };

  using Tables = std::map<uint8_t, Known>;  // by number

  static void load(const Json::Value& content, Tables& tables);
  bool storeLocked() REQUIRES(fileMutex_);

  EventQueue& events_;
  const std::function<void()> learned_;
  mutable Mutex mutex_;
  Tables known_ GUARDED_BY(mutex_);
  std::set<std::pair<uint8_t, uint32_t>> reported_ GUARDED_BY(mutex_);  // region and CRC_32
  bool changed_ GUARDED_BY(mutex_) = false;                             // since it was stored

  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
  // Not before, but for store().
  std::chrono::steady_clock::time_point nextStore_ GUARDED_BY(fileMutex_){};
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_RATING_REGIONS_H_
