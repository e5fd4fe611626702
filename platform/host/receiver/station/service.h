// A service of the list, and how services are built from a carrier's tables.
#ifndef ATSC_HOST_RECEIVER_STATION_SERVICE_H_
#define ATSC_HOST_RECEIVER_STATION_SERVICE_H_

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "aisrv.h"
#include "receiver/tables/carrier_tables.h"

namespace atschost {

// Identifies a service from scan to scan.
struct ServiceKey {
  uint16_t major = 0;
  uint16_t minor = 0;
  uint32_t frequency = 0;  // Hz
  uint32_t source = 0;     // AI_INPUT_*

  // Defines the order of the list.
  auto tie() const { return std::tie(major, minor, frequency, source); }
  bool operator<(const ServiceKey& other) const { return tie() < other.tie(); }
  bool operator==(const ServiceKey& other) const { return tie() == other.tie(); }
};

struct Service {
  ServiceKey key;
  uint16_t record = 0;  // service record number, 1 to 0xFFFE
  uint32_t type = AISRV_TYPE_TV;
  uint16_t sourceId = 0;
  uint16_t tsid = 0;
  uint16_t programNumber = 0;
  uint32_t flags = AISRV_FLAG_VISIBLE;
  uint32_t favourites = 0;
  bool fromPmt = false;
  bool added = false;  // added by hand: stays listed, with its name, whatever the carrier sends
  uint8_t audio = 0;   // audio track that the viewer chose, 0 for none
  std::string name;    // UTF-16BE
  std::vector<AISRV_pid_info> streams;
  std::vector<CaptionService> captions;  // as announced by the PMT
};

// Returns the services of one carrier that a viewer can choose, without duplicate numbers. The
// service list assigns the record numbers.
std::vector<Service> buildServices(const CarrierTables& tables, uint32_t source,
                                   uint32_t frequency);

// Returns the source of a service id: 0 or 2 terrestrial, 1 or 3 cable; 0 for other values.
uint32_t sourceOfId(uint32_t inputSource);

// Fills a caller's record, including its name buffer.
void copyRecord(const Service& service, AISRV_service_info& record);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_SERVICE_H_
