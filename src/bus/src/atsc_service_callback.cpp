// Events of the middleware as callback messages.
#include <json/json.h>

#include <algorithm>
#include <exception>
#include <iterator>

#include "atsc_log.h"
#include "atsc_service_event.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service")

namespace {

void addSourceIds(Json::Value& message, void* /*data*/, const atsc::LogPlace& place) {
  AIFW_event_update_data update{};
  ATSC_CALL_AT(place, AIFW_get_event_update_data, &update);
  const uint32_t count = std::min<uint32_t>(update.count, AIFW_MAX_UPDATED_SOURCES);
  std::string ids;
  for (uint32_t i = 0; i < count; ++i) {
    ids += std::to_string(update.source_ids[i]);
    if (i + 1 < count) ids += ',';
    ATSC_LOG_AT(place, Debug, "EPG update at src id %d\n", static_cast<int>(update.source_ids[i]));
  }
  message["source_id"] = ids;
}

void addAlert(Json::Value& message, void* data, const atsc::LogPlace& place) {
  ConvertEASAlertText(message, static_cast<multiple_lang_t*>(data));
  uint8_t priority = 0;
  ATSC_CALL_AT(place, AIFW_get_EAS_priority, &priority);
  message["priority"] = static_cast<int>(priority);
}

// The fields of the daylight_savings bits.
int daylightStatus(const AIFW_time_data& time) { return time.daylight_savings & 1; }
int daylightDayOfMonth(const AIFW_time_data& time) { return time.daylight_savings >> 1 & 31; }

void addTime(Json::Value& message, void* data, const atsc::LogPlace& /*place*/) {
  if (data == nullptr) return;
  const auto& time = *static_cast<const AIFW_time_data*>(data);
  message["DS_Day_Of_Month"] = daylightDayOfMonth(time);
  message["DS_Hour"] = static_cast<int>(time.daylight_hour);
  message["DS_Status"] = daylightStatus(time);
  message["GPS_UTC_Offset"] = static_cast<int>(time.gps_utc_offset);
  message["SystemTime"] = Json::UInt(time.system_time);
}

struct Callback {
  AFW_event_t event;
  const char* cbtype;
  void (*addKeys)(Json::Value& message, void* data, const atsc::LogPlace& place);
};

constexpr Callback kCallbacks[] = {
    {AFW_EPG_UPDATE, "EPG_UPDATE", addSourceIds},
    {AFW_EPG_COMPLETE, "EPG_COMPLETE", nullptr},
    {AFW_EVENT_TRANSITION, "EVENT_TRANSITION", nullptr},
    {AFW_SERVICE_DELETED, "SERVICE_DELETED", nullptr},
    {AFW_SERVICE_UPDATE, "SERVICE_UPDATE", nullptr},
    {AFW_RRT_UPDATE, "RRT_UPDATE", nullptr},
    {AFW_RRT_DOWNLOAD_UPDATE, "RRT_DL_UPDATE", nullptr},
    {AFW_PARENTAL_UPDATE, "PARENTAL_UPDATE", nullptr},
    {AFW_PARENTAL_BLOCKED, "PARENTAL_BLOCKED", nullptr},
    {AFW_PARENTAL_UNBLOCKED, "PARENTAL_UNBLOCKED", nullptr},
    {AFW_CHANNEL_LOCKED, "CHANNEL_LOCKED", nullptr},
    {AFW_CHANNEL_UNLOCKED, "CHANNEL_UNLOCKED", nullptr},
    {AFW_CHANNEL_PLAY_SUCCESS, "CHANNEL_PLAY_SUCCESS", nullptr},
    {AFW_DCCM_TEMP_TUNE_START, "DCCM", nullptr},
    {AFW_DCCM_TEMP_TUNE_END, "DCCM", nullptr},
    {AFW_DCCM_REDIRECT_CHANNEL, "DCCM", nullptr},
    {AFW_DCCM_VDS_OPTIONS_AVAILABLE, "DCCM", nullptr},
    {AFW_DCCM_UPDATE_DATA_AVAILABLE, "DCCM", nullptr},
    {AFW_EAS_START_BLOCKING, "EASSTARTBLOCKING", addAlert},
    {AFW_EAS_START_NON_BLOCKING, "EASSTARTNONBLOCKING", addAlert},
    {AFW_EAS_STOP, "EASSTOP", nullptr},
    {AFW_EIT_UPDATE, "EIT_UPDATE", nullptr},
    {AFW_STT_UPDATE, "STT_UPDATE_EVENT", addTime},
    {AFW_TIME_CHANGE, "TIME_CHANGE", addTime},
    {AFW_ETT_UPDATE, "ETT_UPDATE", nullptr},
    {AFW_SERVICE_BUILD_COMPLETED, "SERVICE_BUILD_COMPLETED", nullptr},
    {AFW_SERVICE_ADDED, "SERVICE_ADDED", nullptr},
    {AFW_DCCM_DEPARTING_DESC_AVAILABLE, "DCCM", nullptr},
    {AFW_VIEWING_DELAY, "VIEWING_DELAY", nullptr},
};

// Returns null when the event has no message.
const Callback* findCallback(AFW_event_t event) {
  const auto found = std::find_if(std::begin(kCallbacks), std::end(kCallbacks),
                                  [event](const Callback& row) { return row.event == event; });
  return found != std::end(kCallbacks) ? found : nullptr;
}

}  // namespace

void _ATSC_Service_CB_To_TV(AFW_event_t event, void* data) {
  ATSC_ENTER();
  if (const Callback* callback = findCallback(event)) {
    try {
      Json::Value message(Json::objectValue);
      message["class"] = "CALLBACK";
      message["cbtype"] = callback->cbtype;
      if (callback->addKeys != nullptr) callback->addKeys(message, data, ATSC_HERE());
      std::string text = atsc::jsonText(message);
      ATSC_LOG(Debug, "push command %s", text.c_str());
      const bool guide = event == AFW_EPG_UPDATE || event == AFW_EPG_COMPLETE;
      (guide ? atsc::pushGuideMessage : atsc::pushMessage)(std::move(text));
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "callback of event(%d): %s", event, e.what());
    }
  } else {
    ATSC_LOG(Error, "event(%d) callback is not defined", event);
  }
  ATSC_LEAVE();
}

void ConvertEASAlertText(Json::Value& message, multiple_lang_t* text) {
  ATSC_ENTER();
  if (text != nullptr) message["text"] = atsc::textToUTF8(*text, UINT16_MAX);
  ATSC_LEAVE();
}
