#include "receiver/control/service_editor.h"

#include "middleware_types.h"
#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/tables/service_name.h"

namespace atschost {
namespace {

// Returns whether a virtual channel table can contain the number. On cable, one-part numbers are
// also valid (A/65 6.3.2).
bool isNumber(const ServiceKey& key) {
  constexpr uint16_t kMaxPart = 0x3FF;
  constexpr uint16_t kMaxOnePart = 0x3FFF;
  const bool onePart = key.source == AI_INPUT_CABLE && key.minor == 0;
  return key.major != 0 && key.major <= (onePart ? kMaxOnePart : kMaxPart) && key.minor <= kMaxPart;
}

Service serviceOf(const AISRV_service_info& record) {
  Service service;
  service.key = {record.major, record.minor, record.frequency,
                 sourceOfId(record.service_id.input_source)};
  const bool knownType =
      record.service_type == AISRV_TYPE_RADIO || record.service_type == AISRV_TYPE_DATA;
  service.type = knownType ? record.service_type : uint32_t{AISRV_TYPE_TV};
  service.flags = record.AISRV_flags_;
  service.name = serviceName(record.name);
  return service;
}

bool canBeTuned(const AISRV_service_info& record, const ServiceKey& key) {
  return isSource(key.source) && isTunable(record.frequency) &&
         (record.modulation == 0 || record.modulation == modulationOf(key.source));
}

}  // namespace

ServiceEditor::ServiceEditor(ServiceList& services, Player& player, LiveTuner& tuner,
                             EventQueue& events)
    : services_(services), player_(player), tuner_(tuner), events_(events) {}

bool ServiceEditor::add(const AISRV_service_info& record) {
  const Service service = serviceOf(record);
  const bool listed = services_.find(service.key).has_value();
  if (!canBeTuned(record, service.key) || (!listed && !isNumber(service.key))) {
    log().Warn("cannot add %u-%u, source %u, frequency %u Hz, modulation %u: cannot be tuned",
               record.major, record.minor, record.service_id.input_source, record.frequency,
               record.modulation);
    return false;
  }
  if (!services_.add(service)) return false;
  player_.decideStreams();  // the lock may have changed
  events_.raise(listed ? AFW_SERVICE_UPDATE : AFW_SERVICE_ADDED);
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

bool ServiceEditor::modify(const AISRV_service_info& record) {
  if (!services_.setFlags(sourceOfId(record.service_id.input_source), record.service_id.service_rec,
                          record.AISRV_flags_, record.AISRV_fav_group_))
    return false;
  player_.decideStreams();  // the lock may have changed
  return true;
}

bool ServiceEditor::reset(uint32_t source) {
  if (!isSource(source)) return false;
  // Playing ends before the list is empty, because the carrier would fill the list again.
  const bool reset = services_.reset(
      source, [&](const std::function<void()>& clear) { player_.stopFor(source, clear); });
  if (reset) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return reset;
}

bool ServiceEditor::reload() {
  if (!services_.reload()) return false;
  tuner_.reapplyServices();
  player_.decideStreams();
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

}  // namespace atschost
