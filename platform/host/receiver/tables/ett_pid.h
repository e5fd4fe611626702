// Extended text tables (A/65 6.6) on one PID.
#ifndef ATSC_HOST_RECEIVER_TABLES_ETT_PID_H_
#define ATSC_HOST_RECEIVER_TABLES_ETT_PID_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "receiver/tables/guide_pid.h"

namespace atschost {

// Keeps the descriptions of events; ignores those of channels.
class EttPid : public GuidePid {
 public:
  using GuidePid::GuidePid;
  ~EttPid() override;

  const char* push(const Section& section) override;
  void addTo(GuideTables& guide) const override;

 private:
  struct Text {
    unsigned round;  // in which it came
    uint8_t version;
    uint32_t crc;
    std::string text;
  };

  void sweep() override;

  std::map<uint32_t, Text> texts_;  // by ETM_id
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_ETT_PID_H_
