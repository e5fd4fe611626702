// The event cache: what the guide tables of all carriers said when they were last received.
#ifndef ATSC_HOST_RECEIVER_STATION_GUIDE_H_
#define ATSC_HOST_RECEIVER_STATION_GUIDE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "process/mutex.h"
#include "receiver/tables/guide_tables.h"

namespace atschost {

// An event as the set shows it.
struct ShownEvent {
  GuideEvent event;
  uint32_t start = 0;       // Unix seconds
  std::string description;  // UTF-16BE
};

// The events of one service, by start time; each event once.
using ShownEvents = std::vector<ShownEvent>;

// Any thread.
class Guide {
 public:
  // The source ids whose events (or descriptions) are no longer what they were, ascending.
  struct Change {
    std::vector<uint16_t> events;
    std::vector<uint16_t> texts;
  };

  // Takes over the tables of a carrier. What its MGT no longer announces goes; what it announces
  // and has not been received again yet stays, as far as a carrier's guide may grow. Where the
  // offset is not known the present one is used.
  Change update(uint32_t source, uint32_t frequency, const GuideTables& tables,
                std::optional<uint8_t> gpsUtcOffset);

  // The events of a service as they are now; never null. They stay as they are while held.
  std::shared_ptr<const ShownEvents> events(uint32_t source, uint32_t frequency,
                                            uint16_t sourceId) const;

  // The source ids with events on any carrier of a source, ascending.
  std::vector<uint16_t> sourceIds(uint32_t source) const;

 private:
  struct Carrier;  // not changed once it is in the map

  Mutex updateMutex_;    // one update at a time
  mutable Mutex mutex_;  // held but for a look
  std::map<std::tuple<uint32_t, uint32_t>, std::shared_ptr<const Carrier>> carriers_
      GUARDED_BY(mutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_GUIDE_H_
