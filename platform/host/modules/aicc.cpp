#include "aicc.h"

#include <algorithm>
#include <vector>

#include "modules/call.h"
#include "modules/host.h"
#include "receiver/station/clock.h"

using atschost::CaptionService;
using atschost::Clock;
using atschost::loggedStatusOf;
using atschost::Service;
using atschost::ShownEvent;
using atschost::ShownEvents;

namespace {

// Returns the event at `time`: the one that started last, if several overlap. Null when there is
// none.
const ShownEvent* eventAt(const ShownEvents& events, uint32_t time) {
  const auto begun = [&](const ShownEvent& event) { return event.start <= time; };
  auto event = std::partition_point(events.begin(), events.end(), begun);
  while (event != events.begin())
    if (time - (--event)->start < event->event->duration) return &*event;
  return nullptr;
}

AICC_cc_service recordOf(const CaptionService& service) {
  AICC_cc_service record{};
  record.service_id = service.number;
  std::copy(service.language.begin(), service.language.end(), record.language);
  record.easy_reader = service.easyReader ? 1 : 0;
  record.input_type = service.digital ? AICC_INPUT_DIGITAL : AICC_INPUT_LINE21;
  record.aspect_ratio = service.wide ? AICC_ASPECT_16_9 : AICC_ASPECT_4_3;
  return record;
}

}  // namespace

int AICC_get_cc_service_data(uint32_t path, const AISRV_service_info* service,
                             AICC_cc_service_data* data) {
  const AISRV_service_id id = service ? service->service_id : AISRV_service_id{};
  const auto fill = [&] {
    if (path != 0 || !service || !data) return false;
    const uint32_t source = atschost::sourceOfId(id.input_source);
    bool isListed = false;
    uint32_t frequency = 0;
    uint16_t sourceId = 0;
    std::vector<CaptionService> captions;
    atschost::hostReceiver().services().visit(source, [&](const Service& listed) {
      if (listed.record != id.service_rec) return true;
      isListed = true;
      frequency = listed.key.frequency;
      sourceId = listed.sourceId;
      captions = listed.captions;
      return false;
    });
    if (!isListed) return false;
    const auto events = atschost::hostReceiver().guide().events(source, frequency, sourceId);
    const ShownEvent* present = eventAt(*events, atschost::hostClock().now());
    if (present && present->event->captions) captions = present->event->captionServices;

    static_assert(atschost::kMaxCaptionServices <= AICC_MAX_SERVICES);
    *data = {};
    data->count = static_cast<uint8_t>(captions.size());
    std::transform(captions.begin(), captions.end(), data->services, recordOf);
    return true;
  };
  return loggedStatusOf(__func__, fill, path, id.input_source, id.service_rec);
}
