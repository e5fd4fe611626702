// The known rating region tables.
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

// The last received table of each region, also of earlier runs; before that, the ratings of the
// standards. Any thread.
class RatingRegions {
 public:
  // `learned` is called, without a lock, when a region becomes known.
  RatingRegions(const std::string& stateFolder, EventQueue& events,
                std::function<void()> learned = {});

  // Adopts tables and stores the new ones: at once or, within a few seconds after the last write,
  // in a later call with or without tables. Reports each content of a region once: AFW_RRT_UPDATE
  // for regions 1 and 2, AFW_RRT_DOWNLOAD_UPDATE for others.
  void receive(std::vector<RatingRegionTable> tables);

  // Stores tables that are not stored yet. On failure logs the reason and returns false.
  bool store();

  // Returns a region, null if it is not known.
  std::shared_ptr<const RatingRegion> region(uint8_t number) const;

  // Returns the numbers of the known regions, ascending.
  std::vector<uint8_t> numbers() const;

 private:
  struct Known {
    std::shared_ptr<const RatingRegion> region;
    std::vector<uint8_t> section;  // as received; empty: ratings of the standard
  };

  using Tables = std::map<uint8_t, Known>;  // by number

  static void load(const Json::Value& content, Tables& tables);
  bool storeLocked() REQUIRES(fileMutex_);

  EventQueue& events_;
  const std::function<void()> learned_;
  mutable Mutex mutex_;
  Tables known_ GUARDED_BY(mutex_);
  std::set<std::pair<uint8_t, uint32_t>> reported_ GUARDED_BY(mutex_);  // region and CRC_32
  bool changed_ GUARDED_BY(mutex_) = false;                             // since the last write

  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
  // Earliest time of the next write, except for store().
  std::chrono::steady_clock::time_point nextStore_ GUARDED_BY(fileMutex_){};
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_VIEWING_RATING_REGIONS_H_
