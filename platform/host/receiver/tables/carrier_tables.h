// The tables of a carrier of which its services are made: PAT, PMT and VCT.
#ifndef ATSC_HOST_RECEIVER_TABLES_CARRIER_TABLES_H_
#define ATSC_HOST_RECEIVER_TABLES_CARRIER_TABLES_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "aisrv.h"
#include "receiver/tables/caption_services.h"
#include "receiver/tables/content_advisory.h"

namespace atschost {

// A virtual channel (A/65 tables 6.4 and 6.7).
struct VirtualChannel {
  std::string name;  // UTF-16BE
  uint16_t major = 0;
  uint16_t minor = 0;
  uint8_t modulationMode = 0;
  uint16_t tsid = 0;
  uint16_t programNumber = 0;
  bool hidden = false;
  bool outOfBand = false;
  uint8_t serviceType = 0;
  uint16_t sourceId = 0;
  bool hasLocation = false;  // carries a service location descriptor
  std::vector<AISRV_pid_info> streams;
};

struct Vct {
  uint16_t tsid = 0;
  std::vector<VirtualChannel> channels;
};

struct Pat {
  uint16_t tsid = 0;
  std::map<uint16_t, uint16_t> pmtPids;  // by program number
};

struct CarrierTables {
  std::optional<Pat> pat;
  std::optional<Vct> vct;
  // Of the PMTs, by program number: the elementary streams of all, the captions and the advisories
  // of those that have any.
  std::map<uint16_t, std::vector<AISRV_pid_info>> pmts;
  std::map<uint16_t, std::vector<CaptionService>> captions;
  std::map<uint16_t, std::vector<Advisory>> advisories;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CARRIER_TABLES_H_
