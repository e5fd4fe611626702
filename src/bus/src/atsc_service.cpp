// Start-up of the service process and its customization file.
#include <atsc/atsc_service.h>
#include <json/json.h>
#include <osal.h>

#include <cstdio>
#include <exception>
#include <fstream>

#include "atsc_config_file.h"
#include "atsc_log.h"
#include "atsc_service_event.h"

ATSC_LOGGER("atsc/service")

OSAL_timer_id service_update_tmr_id = 0;

namespace {

// Stores the member `key`, converted by `as`, unless it is absent, 0 or of the wrong type.
template <typename Default, typename Convert>
void read(const Json::Value& root, const char* key, Default absent, Convert as, uint32_t& field) {
  try {
    if (const uint32_t value = as(root.get(key, absent)); value != 0) field = value;
  } catch (const std::exception&) {
  }
}

void readNumber(const Json::Value& root, const char* key, uint32_t& field) {
  read(
      root, key, 0, [](const Json::Value& value) { return value.asUInt(); }, field);
}

// Throws when the file is nested too deep.
void readCustomization(ATSCCustomizedParameter& record) {
  std::ifstream file(atsc::configFile("ATSC_CUSTOM_FILE", "/system/com.qel.atsc/qel.atsc.json"));
  Json::Value root;
  Json::Reader reader;
  if (!file || !reader.parse(file, root)) return;
  read(
      root, "block_play_after_scan", false,
      [](const Json::Value& value) { return value.asBool() ? 1u : 0u; },
      record.block_play_after_scan);
  readNumber(root, "tuner_lock_wait_in_ms", record.tuner_lock_wait_in_ms);
  readNumber(root, "tuner_cable_vsb_wait_in_ms", record.tuner_cable_vsb_wait_in_ms);
  readNumber(root, "DBB_wait_time_in_ms", record.DBB_wait_time_in_ms);
  readNumber(root, "customized_flow", record.customized_flow);
}

}  // namespace

void ATSC_Service_init(ATSCCustomizedParameter* record) {
  ATSC_ENTER();
  _ATSC_Service_Task_init();
  OSAL_timer_create("DB_SRV_TIMER", 2, &service_update_tmr_id);
  if (record != nullptr) {
    *record = {};
    try {
      readCustomization(*record);
    } catch (const std::exception&) {
      // An unusable file means no customization; nothing is logged.
    }
    printf(
        "[ATSC] customized parameter:\n\tblock_play_after_scan(%s)\n\ttuner_lock_wait_in_ms(%d)\n"
        "\ttuner_cable_vsb_wait_in_ms(%d)\n\tDBB_wait_time_in_ms(%d)\n\tcustomize_flow(%d)\n",
        record->block_play_after_scan != 0 ? "true" : "false",
        static_cast<int>(record->tuner_lock_wait_in_ms),
        static_cast<int>(record->tuner_cable_vsb_wait_in_ms),
        static_cast<int>(record->DBB_wait_time_in_ms), static_cast<int>(record->customized_flow));
    fflush(stdout);
  }
  ATSC_LEAVE();
}
