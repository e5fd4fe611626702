// The master guide table (A/65 6.2).
#ifndef ATSC_HOST_RECEIVER_TABLES_MGT_H_
#define ATSC_HOST_RECEIVER_TABLES_MGT_H_

#include <cstdint>
#include <map>
#include <vector>

#include "receiver/stream/section.h"

namespace atschost {

// An instance of a guide table that the MGT announces.
struct Announced {
  uint8_t instance;
  uint8_t version;

  bool operator==(const Announced& other) const {
    return instance == other.instance && version == other.version;
  }
};

// By PID; the instances of a PID ascending.
using GuidePlan = std::map<uint16_t, std::vector<Announced>>;

struct Mgt {
  GuidePlan eits;
  GuidePlan etts;
};

// Reads an MGT with a sound header. Returns null, or the fault for which the table is of no use. Of
// an instance that is announced twice the first PID counts.
const char* readMgt(const Section& section, Mgt& mgt);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_MGT_H_
