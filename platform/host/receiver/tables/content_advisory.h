// How the broadcast rates a programme.
#ifndef ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_
#define ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace atschost {

constexpr uint8_t kContentAdvisoryTag = 0x87;

// The rating of a programme in one rating region.
struct Advisory {
  uint8_t region = 0;
  // Pairs of rating_dimension and rating_value, by dimension, each once.
  std::vector<std::pair<uint8_t, uint8_t>> values;

  bool operator==(const Advisory& other) const {
    return region == other.region && values == other.values;
  }
};

// Reads the content of a content_advisory_descriptor (A/65 6.9.3), without tag and length. Appends
// - to `ratings` a text (UTF-16BE) for each rating system in which the programme is rated, such as
//   "TV-14-D-V" or "PG-13", each once. The systems of regions 1 and 2 are built in (CEA-766); the
//   texts of other regions are those of the descriptor;
// - to `advisories` the values of each region, also if the programme is not rated there.
// Returns false if a region passes the end; the regions before it are appended.
bool readContentAdvisory(const uint8_t* data, size_t size, std::vector<std::string>& ratings,
                         std::vector<Advisory>& advisories);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_
