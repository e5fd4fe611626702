#include "receiver/tuners/guide_reporter.h"

#include <utility>

#include "receiver/tuners/carrier.h"

namespace atschost {

void GuideReporter::followMgt(uint8_t version, size_t bytes) {
  if (mgtVersion_ == version) return;
  mgtVersion_ = version;
  mgtByte_ = bytes;
  completeRaised_ = false;
}

void GuideReporter::update(size_t bytes) {
  const auto offset = decoder_.gpsUtcOffset();
  const bool changed = decoder_.takeGuideChange();
  if (std::exchange(offset_, offset) != offset || changed) {
    const GuideTables& tables = decoder_.guide();
    const TunerEnvironment& environment = tuning_.environment();
    const uint32_t source = tuning_.source(), frequency = tuning_.frequency();
    tuning_.whileTuned([&] {
      environment.events.raiseGuideChange(
          environment.guide.update(source, frequency, tables, offset));
    });
  }
  if (bytes - mgtByte_ >= kReadLimit) decoder_.giveUpSilent();
  if (!completeRaised_ && decoder_.guideComplete()) {
    completeRaised_ = true;
    tuning_.raise(AFW_EPG_COMPLETE);
  }
}

}  // namespace atschost
