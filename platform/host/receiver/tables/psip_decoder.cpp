#include "receiver/tables/psip_decoder.h"

#include <utility>

#include "receiver/tables/table_ids.h"

namespace atschost {
namespace {

// Returns whether a table is sent on kPsipBasePid and decoded here.
bool isBaseTable(uint8_t tableId) {
  return tableId == kMgtId || tableId == kSttId || tableId == kRrtId ||
         tableId == kEmergencyAlertId;
}

}  // namespace

const char* PsipDecoder::push(const Section& section) {
  const bool isBase = section.pid == kPsipBasePid;
  if (!(isBase ? isBaseTable(section.tableId) : guide_.isAnnounced(section))) return nullptr;
  if (section.fault) return section.fault;
  if (!section.current) return nullptr;
  switch (section.tableId) {
    case kSttId:
      return pushSystemTime(section);
    case kRrtId:
      return ratingRegions_.push(section);
    case kEmergencyAlertId:
      return pushAlert(section);
    default:
      return guide_.push(section);
  }
}

const char* PsipDecoder::pushSystemTime(const Section& section) {
  SystemTime time;
  if (const char* fault = readSystemTime(section, time)) return fault;
  time_ = time;
  offset_ = time.gpsUtcOffset;
  return nullptr;
}

const char* PsipDecoder::pushAlert(const Section& section) {
  EmergencyAlert alert;
  if (const char* fault = readEmergencyAlert(section, alert)) return fault;
  alert_ = std::move(alert);
  return nullptr;
}

std::optional<SystemTime> PsipDecoder::takeSystemTime() {
  return std::exchange(time_, std::nullopt);
}

std::optional<EmergencyAlert> PsipDecoder::takeAlert() {
  return std::exchange(alert_, std::nullopt);
}

}  // namespace atschost
