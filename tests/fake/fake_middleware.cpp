// The middleware's functions that return something, by module. CMake writes the others.
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
#include <osal.h>

#include "fake_state.h"

using fake::answer;
using fake::called;
using fake::Parental;
using fake::State;
using fake::state;

// A function that fills a record.
#define FAKE_ANSWER(function, Record, answered) \
  int function(Record* to) { return answer(called(#function, to), &answered, to); }

// A function that reads or writes a setting of the alerts. Reads 1 when it fails.
#define FAKE_SETTING(function)                                \
  int function(int32_t* value, int direction) {               \
    const auto status = called(#function, *value, direction); \
    *value = 1;                                               \
    return answer(status, &Parental::alertSetting, value);    \
  }

// An encoder of limits, which changes one level.
#define FAKE_ENCODER(function, level)                                                  \
  int function(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) { \
    rating->level = 40;                                                                \
    return called(#function, dimension, value, block);                                 \
  }

extern "C" {

// AICC

int AICC_get_cc_service_data(uint32_t path, const AISRV_service_info* service,
                             AICC_cc_service_data* data) {
  return answer(called(__func__, path, service, data), &State::captions, data);
}

// AICN

int AICN_get_current(AISRV_service_info* record) {
  const auto status = called(__func__, record);
  const auto locked = state();
  if (!locked->current) return -1;
  fake::copyService(*locked->current, *record);  // also on failure: must not be used then
  return status;
}

int AICN_get_curr_input_source(void) {
  called(__func__);
  return fake::disturbed(state()->currentInput);
}

int AICN_get_tuner_mode(void) {
  called(__func__);
  return fake::disturbed(state()->currentInput);
}

FAKE_ANSWER(AICN_get_pref_aud_lang, int32_t, State::language)
FAKE_ANSWER(AICN_get_sec_pref_aud_lang, int32_t, State::secondLanguage)

// AICS

int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback) {
  const auto status = called(__func__, request->search_type, request->always_2, request->frequency,
                             request->source);
  state()->scanCallback = callback;
  return status;
}

// AIEC

int AIEC_get_total_events(const AISRV_service_info* service, uint16_t* count) {
  return answer(called(__func__, service, count), [&](State& s) {
    const size_t all = s.events[fake::serviceKey(service->service_id)].size();
    *count = s.claimedEventCount.value_or(static_cast<uint16_t>(all));
  });
}

int AIEC_get_first_n_events(const AISRV_service_info* service, AIEC_event_info* events,
                            uint16_t count, uint16_t* copied) {
  const AISRV_service_id& id = service->service_id;
  return answer(called(__func__, service, events, count, copied), [&](State& s) {
    fake::copyEvent(s, {id.service_rec, id.input_source, 0}, 0, *events, copied);
  });
}

int AIEC_get_next_n_events(const AIEC_event_key* previous, AIEC_event_info* events, uint16_t count,
                           uint16_t* copied, uint32_t direction) {
  return answer(called(__func__, previous, events, count, copied, direction),
                [&](State& s) { fake::copyEvent(s, *previous, 1, *events, copied); });
}

int AIEC_get_multiple_event_rating_string(const AIEC_event_key* event, multiple_lang_t* text) {
  return answer(called(__func__, event, text), [&](State& s) {
    const fake::Event* found = fake::findEvent(s, *event, 0);
    if (found == nullptr || found->allRatings.empty()) return;
    fake::copyText(found->allRatings, found->ratingEncoding, *text);
  });
}

int AIEC_get_event_description(const AIEC_event_key* event, multiple_lang_t* text) {
  return answer(called(__func__, event, text), [&](State& s) {
    const fake::Event* found = fake::findEvent(s, *event, 0);
    if (found != nullptr) fake::copyText(found->description, found->descriptionEncoding, *text);
  });
}

int AIEC_check_rating(const AISRV_service_info* service) {
  called(__func__, service->major, service->minor);
  return fake::disturbed(state()->parental.verdict);
}

// AIFE

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  return answer(called(__func__, tuner, path, details), &State::tunedFrequency,
                &details->frequency);
}

// AIFW

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  const auto status = called(__func__, reinterpret_cast<const void*>(callback));
  state()->eventCallback = callback;
  return status;
}

FAKE_ANSWER(AIFW_get_event_update_data, AIFW_event_update_data, State::update)
FAKE_ANSWER(AIFW_get_EAS_priority, uint8_t, State::alertPriority)

int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record) {
  const auto status = called(__func__, operation, record);
  const char* name = reinterpret_cast<const char*>(record->name.text);
  state()->modified.info = *record;
  state()->modified.name.assign(name, name != nullptr ? record->name.length : 0);
  return status;
}

int AIFW_get_curr_region(AIPC_region_list_t* region) {
  return answer(called(__func__, region), &Parental::region, &region->region);
}

FAKE_SETTING(AIFW_user_eas_setting)
FAKE_SETTING(AIFW_disable_optional_eas_event_id_check)
FAKE_SETTING(AIFW_enable_eas_cable_only)

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  return called(__func__, request->mode, request->input_source, request->service_mask,
                request->major, request->minor, request->reserved, request->service_rec,
                request->input_source_again);
}

// AIIN

int AIIN_get_input_details(uint32_t input, uint8_t* flag, AIIN_input_t* details,
                           uint32_t reserved) {
  const auto status = called(__func__, input, *flag, details, reserved);
  *details = {input, 1, 0, 0, 7000 + input, {}};
  return status;
}

int AIIN_get_db_no_input_details(uint32_t input, AIIN_input_t* details) {
  const auto status = called(__func__, input, details);
  details->type = input == AI_INPUT_CABLE ? AI_INPUT_CABLE : AI_INPUT_TERRESTRIAL;
  return status;
}

// AIPC

int AIPC_get_RRT_regions(uint32_t input, uint8_t* count, uint8_t* regions) {
  return answer(called(__func__, input, *count, regions), [&](const State& s) {
    *count = static_cast<uint8_t>(s.parental.regions.size());
    std::copy(s.parental.regions.begin(), s.parental.regions.end(), regions);
  });
}

int AIPC_get_RRT_details_with_version(uint32_t input, uint8_t region, AIPC_RRT_details* details,
                                      uint8_t* version) {
  return answer(called(__func__, input, region, details->name.length, version),
                [&](const State& s) {
                  details->region = s.parental.tableRegion;
                  fake::copyText(s.parental.name, details->name);
                  *version = s.parental.version;
                });
}

int AIPC_num_of_dimension(uint32_t input, uint8_t region, uint8_t* count) {
  return answer(called(__func__, input, region, count), &Parental::count, count);
}

int AIPC_dimension_name_grad(uint32_t input, uint8_t region, uint8_t dimension,
                             multiple_lang_t* name, uint8_t* levels, uint8_t* graduated) {
  return answer(called(__func__, input, region, dimension, name->length, levels, graduated),
                [&](const State& s) {
                  fake::copyText(s.parental.name, *name);
                  *levels = s.parental.count;
                  *graduated = s.parental.graduated;
                });
}

int AIPC_get_rating_value_text(uint32_t input, uint8_t region, uint8_t dimension, uint8_t value,
                               AIPC_rating_value_text* texts) {
  return answer(called(__func__, input, region, dimension, value, texts->abbreviation.length,
                       texts->text.length),
                [&](const State& s) {
                  fake::copyText(s.parental.abbreviation, texts->abbreviation);
                  fake::copyText(s.parental.text, texts->text);
                });
}

int AIPC_retreive_rating(AIPC_dime_t* rating) {
  return answer(called(__func__, rating->region), [&, region = rating->region](const State& s) {
    *rating = s.parental.rating;
    rating->region = region;
  });
}

int AIPC_store_rating(AIPC_dime_t rating) {
  const auto status = called(__func__, rating.region);
  state()->storedRating = rating;
  return status;
}

FAKE_ENCODER(AIPC_rating_encode, us_tv)
FAKE_ENCODER(AIPC_drrt_rating_encode, us_mpaa)
FAKE_ANSWER(AIPC_get_parental_details, AIPC_parental_details, Parental::details)

int AIPC_set_parental_details(const AIPC_parental_details* details) {
  return called(__func__, details->preset_mode, details->region, details->region_value,
                details->rated, details->enabled);
}

int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group) {
  return answer(called(__func__, *block, group), &Parental::groupStatus, block);
}

int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating) {
  const auto status = called(__func__, country, system, rating->encoding);
  state()->checkedRating.assign(reinterpret_cast<const char*>(rating->text), rating->length);
  return status != 0 ? int{status} : fake::disturbed(state()->parental.verdict);
}

// AIPT

int AIPT_get_index_status(int* status, int path) {
  return answer(called(__func__, status, path), [&](State& s) {
    *status = 0;
    if (s.indexStatuses.empty()) return;
    *status = s.indexStatuses.front();
    s.indexStatuses.erase(s.indexStatuses.begin());
  });
}

// AISRV

int AISRV_get_total_services(uint32_t input, uint32_t mask, const AISRV_query_filter* filter,
                             uint32_t reserved, uint32_t* count) {
  const auto status =
      called(__func__, input, mask, filter, reserved, static_cast<const void*>(count));
  const auto locked = state();
  *count = locked->claimedCount.value_or(static_cast<uint32_t>(locked->services[input].size()));
  fake::disturbCount(*count);
  return status;
}

int AISRV_get_n_services(uint32_t input, uint32_t mask, uint32_t first,
                         const AISRV_query_filter* filter, uint32_t reserved1, uint32_t reserved2,
                         uint32_t* count, AISRV_service_info* records) {
  const auto status = called(__func__, input, mask, first, filter, reserved1, reserved2,
                             static_cast<const void*>(count), records);
  const auto locked = state();
  const std::vector<fake::Service>& services = locked->services[input];
  const uint32_t capacity = *count;
  const uint32_t copied = std::min<uint32_t>(capacity, static_cast<uint32_t>(services.size()));
  for (uint32_t i = 0; i < copied; ++i) {
    fake::copyService(services[i], records[i]);
    if (i > 0) fake::disturb(records[i]);  // the first record like any answer
  }
  *count = locked->claimedCount.value_or(copied);
  // A large capacity would allow many rows, which take too long.
  if (capacity <= UINT8_MAX) fake::disturbCount(*count);
  return status;
}

int AISRV_get_pid_details(const AISRV_service_info* service, AISRV_pid_details* details) {
  return answer(called(__func__, service, details), [&](State& s) {
    const std::vector<AISRV_pid_info>& pids = s.pids[fake::serviceKey(service->service_id)];
    details->count = static_cast<uint32_t>(pids.size());
    std::copy_n(pids.begin(), std::min<size_t>(pids.size(), AISRV_MAX_PIDS), details->pids);
  });
}

int AISRV_get_CAD_list(const AISRV_service_info* service, uint8_t* count, uint8_t* regions) {
  return answer(called(__func__, service->major, *count, regions), [&](const State& s) {
    *count = static_cast<uint8_t>(s.parental.advisories.size());
    std::copy(s.parental.advisories.begin(), s.parental.advisories.end(), regions);
  });
}

int AISRV_get_rating_status(const AISRV_service_info* service, uint32_t* status) {
  return answer(called(__func__, service->major, *status), &Parental::ratingStatus, status);
}

// AIST

FAKE_ANSWER(AIST_get_cur_time_secs, uint32_t, State::time)
FAKE_ANSWER(AIST_get_system_time_info, AIST_system_time_info, State::timeInfo)
FAKE_ANSWER(AIST_get_cur_time_date, AIST_time_date, State::timeDate)

// OSAL

int OSAL_timer_create(const char* name, int type, OSAL_timer_id* timer) {
  const auto status = called(__func__, name, type);
  *timer = ++state()->timers;
  return status;
}

int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds) {
  const auto status = called(__func__, timer, arg, milliseconds);
  state()->timerHandler = handler;
  state()->timerArgument = arg;
  return status;
}

void OSAL_display_sem_details_(void) { called(__func__); }

}  // extern "C"
