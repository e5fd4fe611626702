// Reads the tables of a carrier once.
#ifndef ATSC_HOST_RECEIVER_TUNERS_CARRIER_H_
#define ATSC_HOST_RECEIVER_TUNERS_CARRIER_H_

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "receiver/air/air.h"
#include "receiver/station/clock.h"
#include "receiver/station/service.h"
#include "receiver/tables/guide_tables.h"
#include "receiver/tables/rating_region.h"

namespace atschost {

// Bytes of a stream that are read for its tables at most: over 13 s of an 8-VSB carrier, in which
// every table of the service list is repeated many times.
constexpr size_t kReadLimit = 32 << 20;

struct CarrierResult {
  bool locked = false;
  // Whether the content of the carrier is known: it was read, or its file does not exist.
  bool known = false;
  std::vector<Service> services;
  std::optional<StreamId> stream;
  GuideTables guide;
  bool guideComplete = false;  // as PsipDecoder::guideComplete()
  std::optional<uint8_t> gpsUtcOffset;
  std::vector<RatingRegionTable> ratingRegions;
};

// Tunes to a carrier and reads it until its services, its whole guide and the offset of its time
// are known; with `whole` to the end of the file; never more than kReadLimit. Stops early once
// `stop` is true. Reads a file a second time if it ends before all tables are known: they may have
// come before the tables that announce them. Reports the system time to the clock. Logs a line on
// the tables that were found and a line on faults. Any thread.
CarrierResult readCarrier(const Air& air, Clock& clock, uint32_t source, uint32_t frequency,
                          const std::atomic<bool>& stop, bool whole = false);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_CARRIER_H_
