// Takes the guide of the tuned carrier over into the event cache.
#ifndef ATSC_HOST_RECEIVER_TUNERS_GUIDE_REPORTER_H_
#define ATSC_HOST_RECEIVER_TUNERS_GUIDE_REPORTER_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "receiver/tables/psip_decoder.h"
#include "receiver/tuners/tuning.h"

namespace atschost {

// One thread.
class GuideReporter {
 public:
  GuideReporter(Tuning& tuning, PsipDecoder& decoder) : tuning_(tuning), decoder_(decoder) {}

  // Reports that a current MGT was received after `bytes` of the stream. Another version announces
  // another guide, which is reported complete again.
  void followMgt(uint8_t version, size_t bytes);

  // Updates the guide if its tables changed, and raises the events of the changes; AFW_EPG_COMPLETE
  // once the guide is complete. `bytes` is how much of the stream was read.
  void update(size_t bytes);

 private:
  Tuning& tuning_;
  PsipDecoder& decoder_;
  std::optional<uint8_t> offset_;  // GPS to UTC, at the last update
  std::optional<uint8_t> mgtVersion_;
  size_t mgtByte_ = 0;  // where that version came
  bool completeRaised_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_GUIDE_REPORTER_H_
