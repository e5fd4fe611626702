// Reads the tables of one carrier.
#ifndef ATSC_HOST_RECEIVER_CARRIER_H_
#define ATSC_HOST_RECEIVER_CARRIER_H_

#include <atomic>
#include <cstdint>
#include <vector>

#include "receiver/service.h"

namespace atschost {

struct CarrierResult {
  bool locked = false;
  std::vector<Service> services;
};

// Tunes to a carrier and reads until its services are known, its file ends or 32 MiB are read, but
// no longer than `stop` is false. Logs one line on what it found, with what was wrong. Any thread.
CarrierResult read_carrier(uint32_t source, uint32_t frequency, const std::atomic<bool>& stop);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CARRIER_H_
