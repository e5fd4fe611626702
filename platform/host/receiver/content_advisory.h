// Ratings of an event.
#ifndef ATSC_HOST_RECEIVER_CONTENT_ADVISORY_H_
#define ATSC_HOST_RECEIVER_CONTENT_ADVISORY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace atschost {

constexpr uint8_t kContentAdvisoryTag = 0x87;

// content_advisory_descriptor (A/65 6.9.3), what follows descriptor_length. Appends a text
// (UTF-16BE) for each rating system in which the event is rated, such as "TV-14-D-V" or "PG-13",
// unless it is there already. The systems of regions 1 and 2 are known (CEA-766); elsewhere the
// descriptor's own text is taken. False when it does not end where it should; what came before
// counts.
bool read_content_advisory(const uint8_t* data, size_t size, std::vector<std::string>& ratings);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTENT_ADVISORY_H_
