// The event cache: the guide tables of all carriers, as last received. The modules hand it out,
// aiec.cpp.
#ifndef ATSC_HOST_RECEIVER_STATION_GUIDE_H_
#define ATSC_HOST_RECEIVER_STATION_GUIDE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include "process/mutex.h"
#include "receiver/tables/guide_tables.h"

namespace atschost {

// An event of the guide with its description; both belong to the guide, see Guide::events().
struct ShownEvent {
  const GuideEvent* event;       // never null
  uint32_t start;                // Unix seconds
  std::string_view description;  // UTF-16BE
};

// The events of one service by start time, without duplicates.
using ShownEvents = std::vector<ShownEvent>;

// Any thread.
class Guide {
 public:
  // The source ids whose events (or descriptions) have changed, ascending.
  struct Change {
    std::vector<uint16_t> events;
    std::vector<uint16_t> texts;
  };

  // Stores the tables of a carrier. Removes tables that its MGT no longer announces. Keeps
  // announced tables that have not been received again, up to the maximum size of a carrier's
  // guide. Uses the present UTC offset when `gpsUtcOffset` is unknown.
  Change update(uint32_t source, uint32_t frequency, const GuideTables& tables,
                std::optional<uint8_t> gpsUtcOffset);

  // Removes the tables of a carrier.
  void forget(uint32_t source, uint32_t frequency);

  // Returns the current events of a service; never null. The object does not change later, and
  // keeps what its elements refer to.
  std::shared_ptr<const ShownEvents> events(uint32_t source, uint32_t frequency,
                                            uint16_t sourceId) const;

  // Returns the source ids with events on any carrier of a source, ascending.
  std::vector<uint16_t> sourceIds(uint32_t source) const;

 private:
  struct Carrier;  // immutable once it is in the map

  Mutex updateMutex_;    // one update at a time
  mutable Mutex mutex_;  // only held for short accesses
  std::map<std::tuple<uint32_t, uint32_t>, std::shared_ptr<const Carrier>> carriers_
      GUARDED_BY(mutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_GUIDE_H_
