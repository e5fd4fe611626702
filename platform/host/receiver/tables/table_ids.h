// table_id of the tables that the receiver uses.
#ifndef ATSC_HOST_RECEIVER_TABLES_TABLE_IDS_H_
#define ATSC_HOST_RECEIVER_TABLES_TABLE_IDS_H_

#include <cstdint>

#include "middleware_types.h"

namespace atschost {

// ISO/IEC 13818-1.
constexpr uint8_t kPatId = 0x00;
constexpr uint8_t kPmtId = 0x02;
// A/65.
constexpr uint8_t kMgtId = 0xC7;
constexpr uint8_t kTerrestrialVctId = 0xC8;
constexpr uint8_t kCableVctId = 0xC9;
constexpr uint8_t kRrtId = 0xCA;
constexpr uint8_t kEitId = 0xCB;
constexpr uint8_t kEttId = 0xCC;
constexpr uint8_t kSttId = 0xCD;
// SCTE 18.
constexpr uint8_t kEmergencyAlertId = 0xD8;

// Returns the table_id of the VCT that lists the services of `source` (AI_INPUT_*).
constexpr uint8_t vctIdOf(uint32_t source) {
  return source == AI_INPUT_CABLE ? kCableVctId : kTerrestrialVctId;
}

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_TABLE_IDS_H_
