// The middleware's functions, by module.
#include <aiaud.h>
#include <aicc.h>
#include <aicn.h>
#include <aics.h>
#include <aiec.h>
#include <aife.h>
#include <aifw.h>
#include <aiin.h>
#include <aipc.h>
#include <aipt.h>
#include <aisrv.h>
#include <aist.h>
#include <aiup.h>
#include <aivc.h>
#include <osal.h>
#include <rmgr.h>

#include "fake_state.h"

using fake::called;
using fake::gMutex;
using fake::state;

extern "C" {

// AIAUD

int AIAUD_set_dual_mode(uint32_t mode) { return called(__func__, mode); }

// AICC

int AICC_get_cc_service_data(uint32_t path, const AISRV_service_info* service,
                             AICC_cc_service_data* data) {
  return fake::answer(called(__func__, path, service, data), state().captions, data);
}

// AICN

int AICN_get_current(AISRV_service_info* record) {
  const auto status = called(__func__, record);
  std::lock_guard<std::mutex> lock(gMutex);
  if (!state().hasCurrent) return -1;
  fake::copyService(state().current, *record);  // also on failure: must not be used then
  return status;
}

int AICN_get_curr_input_source(void) {
  called(__func__);
  std::lock_guard<std::mutex> lock(gMutex);
  int input = state().currentInput;
  fake::disturb(input);
  return input;
}

int AICN_get_chan_state(void) { return called(__func__); }
int AICN_set_skip_play_srv(int skip) { return called(__func__, skip); }

int AICN_get_tuner_mode(void) {
  called(__func__);
  std::lock_guard<std::mutex> lock(gMutex);
  int input = state().currentInput;
  fake::disturb(input);
  return input;
}

int AICN_set_play_from_ap(int fromApplication) { return called(__func__, fromApplication); }
int AICN_set_pref_aud_lang(int32_t language) { return called(__func__, language); }
int AICN_set_sec_pref_aud_lang(int32_t language) { return called(__func__, language); }

int AICN_get_pref_aud_lang(int32_t* language) {
  return fake::answer(called(__func__, language), state().languages[0], language);
}

int AICN_get_sec_pref_aud_lang(int32_t* language) {
  return fake::answer(called(__func__, language), state().languages[1], language);
}

// AICS

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  const auto status = called(__func__, request->search_type, request->always_2, request->frequency,
                             request->source);
  std::lock_guard<std::mutex> lock(gMutex);
  state().search = *request;
  state().callback = callback;
  return status;
}

int AICS_stop_scan(void) { return called(__func__); }

// AIEC

int AIEC_get_total_events(const AISRV_service_info* service, uint16_t* count) {
  const auto status = called(__func__, service, count);
  std::lock_guard<std::mutex> lock(gMutex);
  *count =
      state().eventCountIsClaimed
          ? state().claimedEventCount
          : static_cast<uint16_t>(state().events[fake::serviceKey(service->service_id)].size());
  return status;
}

int AIEC_get_first_n_events(const AISRV_service_info* service, AIEC_event_info* events,
                            uint16_t count, uint16_t* copied) {
  const auto status = called(__func__, service, events, count, copied);
  std::lock_guard<std::mutex> lock(gMutex);
  if (status == 0) {
    fake::copyEvent({service->service_id.service_rec, service->service_id.input_source, 0}, 0,
                    *events, copied);
  }
  return status;
}

int AIEC_get_next_n_events(const AIEC_event_key* previous, AIEC_event_info* events, uint16_t count,
                           uint16_t* copied, uint32_t direction) {
  const auto status = called(__func__, previous, events, count, copied, direction);
  std::lock_guard<std::mutex> lock(gMutex);
  if (status == 0) fake::copyEvent(*previous, 1, *events, copied);
  return status;
}

int AIEC_get_multiple_event_rating_string(const AIEC_event_key* event, multiple_lang_t* text) {
  const auto status = called(__func__, event, text);
  std::lock_guard<std::mutex> lock(gMutex);
  const fake::Event* found = fake::findEvent(*event, 0);
  if (status == 0 && found != nullptr && !found->allRatings.empty()) {
    fake::copyText(found->allRatings, found->ratingEncoding, *text);
  }
  return status;
}

int AIEC_get_event_description(const AIEC_event_key* event, multiple_lang_t* text) {
  const auto status = called(__func__, event, text);
  std::lock_guard<std::mutex> lock(gMutex);
  const fake::Event* found = fake::findEvent(*event, 0);
  if (status == 0 && found != nullptr) {
    fake::copyText(found->description, found->descriptionEncoding, *text);
  }
  return status;
}

int AIEC_check_rating(const AISRV_service_info* service) {
  called(__func__, service->major, service->minor);
  std::lock_guard<std::mutex> lock(gMutex);
  int verdict = state().parental.verdict;
  fake::disturb(verdict);
  return verdict;
}

// AIFE

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  const auto status = called(__func__, tuner, path, details);
  std::lock_guard<std::mutex> lock(gMutex);
  details->frequency = state().tunedFrequency;
  return status;
}

int AIFE_tune_stop_request(uint32_t tuner, uint32_t path) { return called(__func__, tuner, path); }

// AIFW

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  const auto status = called(__func__, reinterpret_cast<const void*>(callback));
  std::lock_guard<std::mutex> lock(gMutex);
  state().eventCallback = callback;
  return status;
}

int AIFW_get_event_update_data(AIFW_event_update_data* data) {
  const auto status = called(__func__, data);
  std::lock_guard<std::mutex> lock(gMutex);
  *data = state().update;
  return status;
}

int AIFW_get_EAS_priority(uint8_t* priority) {
  const auto status = called(__func__, priority);
  std::lock_guard<std::mutex> lock(gMutex);
  *priority = state().alertPriority;
  return status;
}

int AIFW_powerTransition_request(int powerdown) { return called(__func__, powerdown); }
int AIFW_play_src(uint32_t path, uint32_t input) { return called(__func__, path, input); }
int AIFW_play_curr_src(void) { return called(__func__); }
int AIFW_handle_tuner_mode_change(int mode) { return called(__func__, mode); }
int AIFW_change_audio(uint8_t track) { return called(__func__, track); }

int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record) {
  const auto status = called(__func__, operation, record);
  std::lock_guard<std::mutex> lock(gMutex);
  state().modified.info = *record;
  state().modified.name.assign(reinterpret_cast<const char*>(record->name.text),
                               record->name.text != nullptr ? record->name.length : 0);
  return status;
}

int AIFW_get_curr_region(AIPC_region_list_t* region) {
  return fake::answerParental(called(__func__, region),
                              [&](const fake::Parental& p) { region->region = p.region; });
}

int AIFW_set_curr_region(int32_t region) { return called(__func__, region); }
int AIFW_pwd_unlocked_no_checking_status(int unlocked) { return called(__func__, unlocked); }

int AIFW_user_eas_setting(int32_t* value, int direction) {
  const auto status = called(__func__, *value, direction);
  return fake::answerParental(status, [&](const fake::Parental& p) { *value = p.alertSetting; });
}

int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction) {
  const auto status = called(__func__, *value, direction);
  *value = 1;  // also when it fails
  return fake::answerParental(status, [&](const fake::Parental& p) { *value = p.alertSetting; });
}

int AIFW_enable_eas_cable_only(int32_t* value, int direction) {
  const auto status = called(__func__, *value, direction);
  *value = 1;  // also when it fails
  return fake::answerParental(status, [&](const fake::Parental& p) { *value = p.alertSetting; });
}

int AIFW_init(int mode) { return called(__func__, mode); }

int AIFW_play_first_service(uint32_t input, uint32_t frequency) {
  return called(__func__, input, frequency);
}

int AIFW_stop_curr_src(void) { return called(__func__); }

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  return called(__func__, request->mode, request->input_source, request->service_mask,
                request->major, request->minor, request->reserved, request->service_rec,
                request->input_source_again);
}

int AIFW_passwd_reqd_non_play_src(int required) { return called(__func__, required); }
int AIFW_pwd_unlocked_no_playing(int unlocked) { return called(__func__, unlocked); }

// AIIN

int AIIN_get_input_details(uint32_t input, uint8_t* flag, AIIN_input_t* details,
                           uint32_t reserved) {
  const auto status = called(__func__, input, *flag, details, reserved);
  details->type = input;
  details->tuner = 1;
  details->handle = 7000 + input;
  return status;
}

int AIIN_get_db_no_input_details(uint32_t input, AIIN_input_t* details) {
  const auto status = called(__func__, input, details);
  details->type =
      input == 0 || input == AI_INPUT_TERRESTRIAL ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE;
  return status;
}

// AIPC

int AIPC_get_RRT_regions(uint32_t input, uint8_t* count, uint8_t* regions) {
  return fake::answerParental(called(__func__, input, *count, regions),
                              [&](const fake::Parental& p) {
                                *count = static_cast<uint8_t>(p.regions.size());
                                std::copy(p.regions.begin(), p.regions.end(), regions);
                              });
}

int AIPC_get_RRT_details_with_version(uint32_t input, uint8_t region, AIPC_RRT_details* details,
                                      uint8_t* version) {
  return fake::answerParental(called(__func__, input, region, details->name.length, version),
                              [&](const fake::Parental& p) {
                                details->region = p.tableRegion;
                                fake::copyText(p.name, details->name);
                                *version = p.version;
                              });
}

int AIPC_num_of_dimension(uint32_t input, uint8_t region, uint8_t* count) {
  return fake::answerParental(called(__func__, input, region, count),
                              [&](const fake::Parental& p) { *count = p.count; });
}

int AIPC_dimension_name_grad(uint32_t input, uint8_t region, uint8_t dimension,
                             multiple_lang_t* name, uint8_t* levels, uint8_t* graduated) {
  return fake::answerParental(
      called(__func__, input, region, dimension, name->length, levels, graduated),
      [&](const fake::Parental& p) {
        fake::copyText(p.name, *name);
        *levels = p.count;
        *graduated = p.graduated;
      });
}

int AIPC_get_rating_value_text(uint32_t input, uint8_t region, uint8_t dimension, uint8_t value,
                               AIPC_rating_value_text* texts) {
  return fake::answerParental(called(__func__, input, region, dimension, value,
                                     texts->abbreviation.length, texts->text.length),
                              [&](const fake::Parental& p) {
                                fake::copyText(p.abbreviation, texts->abbreviation);
                                fake::copyText(p.text, texts->text);
                              });
}

int AIPC_collect_RRT(void) { return called(__func__); }

int AIPC_retreive_rating(AIPC_dime_t* rating) {
  return fake::answerParental(called(__func__, rating->region), [&](const fake::Parental& p) {
    const uint32_t region = rating->region;
    *rating = p.rating;
    rating->region = region;
  });
}

int AIPC_store_rating(AIPC_dime_t rating) {
  const auto status = called(__func__, rating.region);
  std::lock_guard<std::mutex> lock(gMutex);
  state().storedRating = rating;
  return status;
}

int AIPC_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  rating->us_tv = 40;
  return called(__func__, dimension, value, block);
}

int AIPC_drrt_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  rating->downloadable[63][14] = 41;
  return called(__func__, dimension, value, block);
}

int AIPC_get_parental_details(AIPC_parental_details* details) {
  return fake::answerParental(called(__func__, details),
                              [&](const fake::Parental& p) { *details = p.details; });
}

int AIPC_set_parental_details(const AIPC_parental_details* details) {
  return called(__func__, details->preset_mode, details->region, details->region_value,
                details->rated, details->enabled);
}

int AIPC_set_rating_status_unrated_groups(int block, int32_t group) {
  return called(__func__, block, group);
}

int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group) {
  return fake::answerParental(called(__func__, *block, group),
                              [&](const fake::Parental& p) { *block = p.groupStatus; });
}

int AIPC_reset_user_ratings(void) { return called(__func__); }
int AIPC_set_default_settings(void) { return called(__func__); }
int AIPC_store_all(void) { return called(__func__); }

int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating) {
  const auto status = called(__func__, country, system, rating->encoding);
  std::lock_guard<std::mutex> lock(gMutex);
  state().checkedRating.assign(reinterpret_cast<const char*>(rating->text), rating->length);
  int verdict = state().parental.verdict;
  fake::disturb(verdict);
  return status != 0 ? int{status} : verdict;
}

// AIPT

int AIPT_get_index_status(int* status, int path) {
  const auto result = called(__func__, status, path);
  std::lock_guard<std::mutex> lock(gMutex);
  *status = 0;
  if (!state().indexStatuses.empty()) {
    *status = state().indexStatuses.front();
    state().indexStatuses.erase(state().indexStatuses.begin());
  }
  return result;
}

// AISRV

int AISRV_get_total_services(uint32_t input, uint32_t mask, const AISRV_query_filter* filter,
                             uint32_t reserved, uint32_t* count) {
  const auto status =
      called(__func__, input, mask, filter, reserved, static_cast<const void*>(count));
  std::lock_guard<std::mutex> lock(gMutex);
  *count = state().countIsClaimed ? state().claimedCount
                                  : static_cast<uint32_t>(state().services[input].size());
  fake::disturbCount(*count);
  return status;
}

int AISRV_get_n_services(uint32_t input, uint32_t mask, uint32_t first,
                         const AISRV_query_filter* filter, uint32_t reserved1, uint32_t reserved2,
                         uint32_t* count, AISRV_service_info* records) {
  const auto status = called(__func__, input, mask, first, filter, reserved1, reserved2,
                             static_cast<const void*>(count), records);
  std::lock_guard<std::mutex> lock(gMutex);
  const std::vector<fake::Service>& services = state().services[input];
  const uint32_t capacity = *count;
  const uint32_t copied = std::min<uint32_t>(capacity, static_cast<uint32_t>(services.size()));
  for (uint32_t i = 0; i < copied; ++i) {
    fake::copyService(services[i], records[i]);
    if (i > 0) fake::disturb(records[i]);  // the first record like any answer
  }
  *count = state().countIsClaimed ? state().claimedCount : copied;
  // A large capacity would allow many rows, which take too long.
  if (capacity <= UINT8_MAX) fake::disturbCount(*count);
  return status;
}

int AISRV_get_pid_details(const AISRV_service_info* service, AISRV_pid_details* details) {
  const auto status = called(__func__, service, details);
  std::lock_guard<std::mutex> lock(gMutex);
  const auto known = state().pids.find(fake::serviceKey(service->service_id));
  if (known != state().pids.end()) {
    details->count = static_cast<uint32_t>(known->second.size());
    std::copy_n(known->second.begin(), std::min<size_t>(known->second.size(), AISRV_MAX_PIDS),
                details->pids);
  }
  return status;
}

int AISRV_sync_to_database(void) { return called(__func__); }
int AISRV_reset_db(uint32_t input) { return called(__func__, input); }

int AISRV_get_CAD_list(const AISRV_service_info* service, uint8_t* count, uint8_t* regions) {
  return fake::answerParental(called(__func__, service->major, *count, regions),
                              [&](const fake::Parental& p) {
                                *count = static_cast<uint8_t>(p.advisories.size());
                                std::copy(p.advisories.begin(), p.advisories.end(), regions);
                              });
}

int AISRV_get_rating_status(const AISRV_service_info* service, uint32_t* status) {
  return fake::answerParental(called(__func__, service->major, *status),
                              [&](const fake::Parental& p) { *status = p.ratingStatus; });
}

// AIST

int AIST_get_cur_time_secs(uint32_t* seconds) {
  const auto status = called(__func__, seconds);
  std::lock_guard<std::mutex> lock(gMutex);
  *seconds = state().time;
  return status;
}

int AIST_manual_mode_enable(int manual) { return called(__func__, manual); }
int AIST_set_current_time_zone(int32_t zone) { return called(__func__, zone); }

int AIST_get_system_time_info(AIST_system_time_info* info) {
  return fake::answer(called(__func__, info), state().timeInfo, info);
}

int AIST_get_cur_time_date(AIST_time_date* date) {
  return fake::answer(called(__func__, date), state().timeDate, date);
}

// AIUP

int AIUP_store_all(void) { return called(__func__); }
int AIUP_sync(void) { return called(__func__); }

// AIVC

int AIVC_close_video(uint32_t path) { return called(__func__, path); }

// OSAL

int OSAL_timer_create(const char* name, int type, OSAL_timer_id* timer) {
  const auto status = called(__func__, name, type);
  std::lock_guard<std::mutex> lock(gMutex);
  *timer = ++state().timers;
  return status;
}

int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds) {
  const auto status = called(__func__, timer, arg, milliseconds);
  std::lock_guard<std::mutex> lock(gMutex);
  state().timerHandler = handler;
  state().timerArgument = arg;
  return status;
}

void OSAL_display_sem_details_(void) { called(__func__); }

// RMGR

int RMGRReload(void) { return called(__func__); }

}  // extern "C"
