// Ratings of a programme.
#ifndef ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_
#define ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace atschost {

constexpr uint8_t kContentAdvisoryTag = 0x87;

// How a programme is rated by the table of one rating region.
struct Advisory {
  uint8_t region = 0;
  // rating_dimension and rating_value, by dimension, each once.
  std::vector<std::pair<uint8_t, uint8_t>> values;

  bool operator==(const Advisory& other) const {
    return region == other.region && values == other.values;
  }
};

// content_advisory_descriptor (A/65 6.9.3), what follows descriptor_length. Appends a text
// (UTF-16BE) for each rating system in which the programme is rated, such as "TV-14-D-V" or
// "PG-13", unless it is there already. The systems of regions 1 and 2 are known (CEA-766);
// elsewhere the descriptor's own text is taken. Appends also what each region says, rated or not.
// False when it does not end where it should; what came before counts.
bool readContentAdvisory(const uint8_t* data, size_t size, std::vector<std::string>& ratings,
                         std::vector<Advisory>& advisories);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CONTENT_ADVISORY_H_
