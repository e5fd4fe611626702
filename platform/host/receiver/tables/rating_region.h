// The rating region table (A/65 6.4).
#ifndef ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_
#define ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "receiver/stream/section.h"

namespace atschost {

// A rating region. Texts are UTF-16BE.
struct RatingRegion {
  struct Value {
    std::string abbreviation;
    std::string text;
  };
  struct Dimension {
    std::string name;
    bool graduated = false;     // each value includes the lower values
    std::vector<Value> values;  // at most AIPC_MAX_LEVELS; value 0 often has no texts
  };

  uint8_t number = 0;
  uint8_t version = 0;
  std::string name;
  std::vector<Dimension> dimensions;  // 1 to 255
};

// A rating region table with the section in which it was received.
struct RatingRegionTable {
  RatingRegion region;
  std::vector<uint8_t> section;
};

// Reads a rating region table. Returns null, or the fault for which the table is of no use;
// `region` then holds what was read before the fault.
const char* readRatingRegion(const Section& section, RatingRegion& region);

// Does the same with bytes that may be of any kind, such as those of a file.
const char* readRatingRegion(const uint8_t* section, size_t size, RatingRegion& region);

// Returns regions 1 and 2 as CEA-766 defines them, for use before a table is received.
std::vector<RatingRegion> standardRatingRegions();

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_RATING_REGION_H_
