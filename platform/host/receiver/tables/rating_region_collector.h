// Collects the rating region tables of one stream.
#ifndef ATSC_HOST_RECEIVER_TABLES_RATING_REGION_COLLECTOR_H_
#define ATSC_HOST_RECEIVER_TABLES_RATING_REGION_COLLECTOR_H_

#include <cstdint>
#include <map>
#include <vector>

#include "receiver/stream/section.h"
#include "receiver/tables/rating_region.h"

namespace atschost {

// One thread.
class RatingRegionCollector {
 public:
  // Takes a section with a sound header; ignores a repetition. Returns null, or the fault for which
  // the table was dropped.
  const char* push(const Section& section);

  // Returns the last new table of each region since the last call.
  std::vector<RatingRegionTable> take();

 private:
  std::map<uint8_t, std::vector<uint8_t>> known_;  // the last section, by region
  std::vector<RatingRegionTable> new_;             // since the last take(), in the order received
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_RATING_REGION_COLLECTOR_H_
