#include "receiver/tuners/programme_watch.h"

#include <algorithm>
#include <utility>

namespace atschost {
namespace {

constexpr uint32_t kLongestStep = 60;  // seconds between two checks; more is a jump of the clock

}  // namespace

void ProgrammeWatch::check() {
  const TunerEnvironment& environment = tuning_.environment();
  const uint32_t now = environment.clock.now();
  const uint32_t before = std::exchange(checkedAt_, now);
  const std::optional<ServiceKey> key = tuning_.service();
  if (!key) return;
  const bool same = std::exchange(checked_, key) == key;
  if (!same || now <= before || now - before > kLongestStep) return;
  uint16_t sourceId = 0;
  environment.services.visit(key->source, [&](const Service& service) {
    if (!(service.key == *key)) return true;
    sourceId = service.sourceId;
    return false;
  });
  if (sourceId == 0) return;
  const auto events = environment.guide.events(key->source, key->frequency, sourceId);
  const auto next =
      std::upper_bound(events->begin(), events->end(), before,
                       [](uint32_t t, const ShownEvent& event) { return t < event.start; });
  if (next != events->end() && next->start <= now) tuning_.raise(AFW_EVENT_TRANSITION);
}

}  // namespace atschost
