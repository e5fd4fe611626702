// Reads the tables of one carrier, once.
#ifndef ATSC_HOST_RECEIVER_CARRIER_H_
#define ATSC_HOST_RECEIVER_CARRIER_H_

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "receiver/air.h"
#include "receiver/psip_decoder.h"
#include "receiver/service.h"

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
  std::optional<uint8_t> gps_utc_offset;
  std::vector<RatingRegionTable> rating_regions;
};

// Tunes to a carrier and reads until its services and its guide are known, its file ends or
// kReadLimit, but no longer than `stop` is false. The system time goes to the clock. Logs one line
// on what it found, with what was wrong. Any thread.
CarrierResult read_carrier(uint32_t source, uint32_t frequency, const std::atomic<bool>& stop);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CARRIER_H_
