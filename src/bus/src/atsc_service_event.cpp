// Intake of the middleware's events.
#include "atsc_service_event.h"

#include <aicn.h>
#include <atsc/atsc_service.h>

#include "atsc_log.h"

ATSC_LOGGER("atsc/service")

const AFWEvent stAFWEvent[100] = {
    {"EPG_UPDATE_EVENT", 0},
    {"EPG_COMPLETE_EVENT", 1},
    {"EVENT_TRANSITION_EVENT", 2},
    {"SERVICE_DELETED_EVENT", 3},
    {"SERVICE_UPDATE_EVENT ", 4},
    {"SERVICE_UPDATE_TIMER", 5},
    {"RRT_UPDATE_EVENT", 6},
    {"RRT_DWNLD_UPDATE_EVENT", 7},
    {"TUNER_LOCKED_EVENT", 8},
    {"TUNER_UNLOCKED_EVENT", 9},
    {"TUNER_LOCKING_PROGRESS_EVENT", 10},
    {"PARENTAL_UPDATE_EVENT", 11},
    {"PARENTAL_BLOCKED_EVENT", 12},
    {"PARENTAL_UNBLOCKED_EVENT", 13},
    {"CURRENT_CHANNEL_LOCKED", 14},
    {"CURRENT_CHANNEL_UNLOCKED", 15},
    {"CURRENT_CHANNEL_PLAY_SUCCESS", 16},
    {"CURRENT_CHANNEL_PLAY_FAILURE", 17},
    {"CURRENT_CHANNEL_DELETED_EVENT", 18},
    {"SLEEP_TIMER_EVENT", 19},
    {"SCHEDULER_EVENT", 20},
    {"SCHEDULER_MSG", 21},
    {"LOCK_AFTER_MSG", 22},
    {"DCCM_TEMP_TUNE_START", 23},
    {"DCCM_TEMP_TUNE_END", 24},
    {"DCCM_REDIRECT_CHANNEL", 25},
    {"DCCM_VDS_OPTIONS_AVAILABLE", 26},
    {"DCCM_UPDATE_DATA_AVAILABLE", 27},
    {"EAS_START_BLOCKING", 28},
    {"EAS_START_NON_BLOCKING", 29},
    {"EAS_STOP_EVENT", 30},
    {"XDS_EVENT", 31},
    {"DCCM_EVENT", 32},
    {"EAS_EVENT", 33},
    {"EVENT_SLEEP_TIMER", 34},
    {"EVENT_SLEEP_TIMER_OVER", 35},
    {"EVENT_LAPSED_EVENT", 36},
    {"TASK_EXIT", 37},
    {"EIT_UPDATE_EVENT", 38},
    {"STT_UPDATE_EVENT", 39},
    {"TIME_CHANGE_EVENT", 40},
    {"TIME_MODE_CHANGE_EVENT", 41},
    {"TIME_MONITOR_EVENT", 42},
    {"ETT_UPDATE_EVENT", 43},
    {"TMR_EXPR_EVENT", 44},
    {"DBB_SERVICE_BUILD_COMPLETED_EVENT", 45},
    {"DBB_SERVICE_BUILD_ERROR_EVENT", 46},
    {"DBB_SERVICE_BUILD_VCT_TIMEOUT_EVENT", 47},
    {"DBB_SERVICE_BUILD_PMT_TIMEOUT_EVENT", 48},
    {"ALL_EVENT_COLLECTION_COMPLETED_EVENT", 49},
    {"NO_EVENT_FOUND", 50},
    {"SERVICE_ADDED_EVENT", 51},
    {"NO_AV_COMPONENT", 52},
    {"NO_VIDEO_COMPONENT", 53},
    {"NO_AUDIO_COMPONENT", 54},
    {"DATABASE_RESET_EVENT", 55},
    {"AFD_BAR_UPDATED_EVENT", 56},
    {"DCCM_DEPARTING_DESC_AVAILABLE", 57},
    {"TS_DELETED_SERVICE_EVENT", 58},
    {"CC_BANNER_INFO_EVENT", 59},
    {"CC_PUD_AVALIBILITY_EVENT", 60},
    {"RF_RESOLUTION_CHANGE", 61},
    {"ASPECT_RATIO_CHANGE", 62},
    {"NON_TS_LOCKED_EVENT", 63},
    {"NON_TS_UNLOCKED_EVENT", 64},
    {"NON_TS_LOCKING_EVENT", 65},
    {"EAS_APP_PREF_CHANGE_EVENT", 66},
    {"TS_SCRAMBLED_SERVICE_EVENT", 67},
    {"AFD_UPDATE_EVENT", 68},
    {"VIEWING_DELAY", 69},
    {"INVALID_EVENT", 70},
};

namespace {

// Time without a change of the service list before the channel table is synchronised.
constexpr uint32_t kServiceUpdateMs = 2000;

}  // namespace

void ATSC_Service_event_cb(AFW_event_t event, void* data) {
  ATSC_ENTER();
  if (event <= AFW_INVALID) {
    if (event >= 0 && stAFWEvent[event].id == event) {
      ATSC_LOG(Info, " @@@@@ AFW_event_t = %d (%s)\n", event, stAFWEvent[event].name);
    } else {
      ATSC_LOG(Info, " AFW_event_t = %d !!! not Match the default NAME array \n", event);
    }
  }
  switch (event) {
    case AFW_EPG_UPDATE:
    case AFW_EPG_COMPLETE:
    case AFW_EVENT_TRANSITION:
    case AFW_RRT_UPDATE:
    case AFW_RRT_DOWNLOAD_UPDATE:
    case AFW_PARENTAL_UPDATE:
    case AFW_PARENTAL_BLOCKED:
    case AFW_PARENTAL_UNBLOCKED:
    case AFW_CHANNEL_LOCKED:
    case AFW_CHANNEL_UNLOCKED:
    case AFW_CHANNEL_PLAY_SUCCESS:
    case AFW_DCCM_TEMP_TUNE_START:
    case AFW_DCCM_TEMP_TUNE_END:
    case AFW_DCCM_REDIRECT_CHANNEL:
    case AFW_DCCM_VDS_OPTIONS_AVAILABLE:
    case AFW_DCCM_UPDATE_DATA_AVAILABLE:
    case AFW_EAS_START_BLOCKING:
    case AFW_EAS_START_NON_BLOCKING:
    case AFW_EAS_STOP:
    case AFW_EIT_UPDATE:
    case AFW_STT_UPDATE:
    case AFW_TIME_CHANGE:
    case AFW_DCCM_DEPARTING_DESC_AVAILABLE:
    case AFW_VIEWING_DELAY:
      _ATSC_Service_CB_To_TV(event, data);
      break;
    case AFW_SERVICE_DELETED:
    case AFW_SERVICE_BUILD_COMPLETED:
    case AFW_SERVICE_ADDED:
      OSAL_timer_enable(service_update_tmr_id, service_db_service_update_tm_callback, nullptr,
                        kServiceUpdateMs);
      break;
    default:
      break;
  }
  ATSC_LEAVE();
}

void ATSC_Service_event_cb_Ex() {
  ATSC_ENTER();
  _ATSC_Service_CB_To_TV(AFW_SERVICE_BUILD_COMPLETED, nullptr);
  ATSC_LEAVE();
}

void service_db_service_update_tm_callback(void* /*arg*/, int /*value*/) {
  ATSC_ENTER();
  ATSC_LOG(Debug, "trigger service_db_service_update_tm_callback\n");
  const int source = AICN_get_curr_input_source();
  if (ATSC_Service_db_UpdateChannel(source) == 1) {
    _ATSC_Service_CB_To_TV(AFW_SERVICE_BUILD_COMPLETED, nullptr);
  }
  ATSC_LEAVE();
}
