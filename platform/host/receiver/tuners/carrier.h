// Reads the tables of one carrier, once.
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

// How much of a stream is read for its tables: over 13 s of an 8-VSB carrier, in which every table
// of the service list comes many times.
constexpr size_t kReadLimit = 32 << 20;

struct CarrierResult {
  bool locked = false;
  // Whether it is known what the carrier carries: it was read, or it surely does not exist.
  bool known = false;
  std::vector<Service> services;
  std::optional<StreamId> stream;
  GuideTables guide;
  bool guideComplete = false;  // as PsipDecoder::guideComplete()
  std::optional<uint8_t> gpsUtcOffset;
  std::vector<RatingRegionTable> ratingRegions;
};

// Tunes to a carrier and reads until its services, all of its guide and the offset of its time are
// known, all of it with `whole`, at most kReadLimit, but no longer than `stop` is false. A file
// that ends too early is read a second time, for what came before the tables that tell of it. The
// system time goes to the clock. Logs one line on what it found, with what was wrong. Any thread.
CarrierResult readCarrier(const Air& air, Clock& clock, uint32_t source, uint32_t frequency,
                          const std::atomic<bool>& stop, bool whole = false);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_CARRIER_H_
