// The rating region tables as received.
#ifndef ATSC_HOST_RECEIVER_RATING_REGIONS_H_
#define ATSC_HOST_RECEIVER_RATING_REGIONS_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "receiver/event_queue.h"
#include "receiver/psip_decoder.h"

namespace atschost {

// Any thread.
class RatingRegions {
 public:
  explicit RatingRegions(EventQueue& events) : events_(events) {}

  // Keeps tables. Each content of a region is reported once: AFW_RRT_UPDATE for regions 1 and 2,
  // else AFW_RRT_DOWNLOAD_UPDATE.
  void receive(std::vector<RatingRegionTable> tables);

  // The latest table of a region; none before the first one.
  std::optional<RatingRegionTable> table(uint8_t region) const;

 private:
  EventQueue& events_;
  mutable std::mutex mutex_;
  std::map<uint8_t, RatingRegionTable> tables_;      // by region
  std::set<std::pair<uint8_t, uint32_t>> reported_;  // region and CRC_32
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_RATING_REGIONS_H_
