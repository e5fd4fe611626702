// What a rating region table says.
#ifndef ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_
#define ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "receiver/stream/section.h"

namespace atschost {

// A rating region (A/65 6.4). Texts are UTF-16BE.
struct RatingRegion {
  struct Value {
    std::string abbreviation;
    std::string text;
  };
  struct Dimension {
    std::string name;
    bool graduated = false;     // each value includes those below
    std::vector<Value> values;  // at most AIPC_MAX_LEVELS; value 0 often has no texts
  };

  uint8_t number = 0;
  uint8_t version = 0;
  std::string name;
  std::vector<Dimension> dimensions;  // 1 to 255
};

// A rating region table as received: what it says, and its section.
struct RatingRegionTable {
  RatingRegion region;
  std::vector<uint8_t> section;
};

// Reads a rating region table. Returns null, or the fault for which the table is of no use;
// `region` then holds what was read before the fault.
const char* readRatingRegion(const Section& section, RatingRegion& region);

// Does the same with bytes that may be of any kind, such as those of a file.
const char* readRatingRegion(const uint8_t* section, size_t size, RatingRegion& region);

// The regions that are known without any table, 1 and 2, as CEA-766 defines them.
std::vector<RatingRegion> standardRatingRegions();

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_
