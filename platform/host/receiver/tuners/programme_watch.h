// Notices when a programme of the played service begins.
#ifndef ATSC_HOST_RECEIVER_TUNERS_PROGRAMME_WATCH_H_
#define ATSC_HOST_RECEIVER_TUNERS_PROGRAMME_WATCH_H_

#include <cstdint>
#include <optional>

#include "receiver/tuners/tuning.h"

namespace atschost {

// One thread.
class ProgrammeWatch {
 public:
  explicit ProgrammeWatch(Tuning& tuning) : tuning_(tuning) {}

  // Raises AFW_EVENT_TRANSITION if a programme has begun since the last call for the same service.
  void check();

 private:
  Tuning& tuning_;
  uint32_t checkedAt_ = 0;  // Unix seconds
  std::optional<ServiceKey> checked_;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_PROGRAMME_WATCH_H_
