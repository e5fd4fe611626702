// AIFW, AICN, AIFE, AIPT and AIVC: playing, channel changes and events. Events are reported on a
// worker of their own and without a lock, as the library calls the platform from its callback.
#include <algorithm>
#include <chrono>
#include <optional>

#include "aicn.h"
#include "aife.h"
#include "aifw.h"
#include "aipt.h"
#include "aivc.h"
#include "mutex.h"
#include "process.h"
#include "set.h"

namespace minimal {

namespace {

// GPS time starts on 1980-01-06 and has no leap seconds; UTC has had 18 since then.
constexpr uint32_t kGpsEpoch = 315964800;
constexpr uint8_t kLeapSeconds = 18;

struct State {
  Mutex mutex;
  AIFW_app_callback callback GUARDED_BY(mutex) = nullptr;
  bool initialised GUARDED_BY(mutex) = false;
  bool standby GUARDED_BY(mutex) = false;
  bool playing GUARDED_BY(mutex) = false;
  const Service* current GUARDED_BY(mutex) = nullptr;  // kept when playing ends
  uint32_t tuned GUARDED_BY(mutex) = 0;                // Hz; 0: not tuned
  // The current channel is locked and the viewer has not opened it.
  bool locked GUARDED_BY(mutex) = false;
  bool passwordRequired GUARDED_BY(mutex) = true;
  bool openNext GUARDED_BY(mutex) = false;
  // Source ids of the last AFW_EPG_UPDATE.
  std::vector<uint32_t> updated GUARDED_BY(mutex);
};

State& state() { return immortal<State>(); }

uint32_t currentInput() { return static_cast<uint32_t>(setting("input", AI_INPUT_TERRESTRIAL)); }

void post(AFW_event_t event, std::optional<AIFW_time_data> time = {},
          std::vector<uint32_t> updated = {}) {
  workers().events.post([event, time, updated = std::move(updated)]() mutable {
    AIFW_app_callback callback = nullptr;
    {
      const MutexLock lock(state().mutex);
      callback = state().callback;
      if (event == AFW_EPG_UPDATE) state().updated = std::move(updated);
    }
    if (callback != nullptr) callback(event, time ? &*time : nullptr);
  });
}

// Updates the guide and posts itself for the next half hour.
void watchClock() EXCLUDES(state().mutex) {
  constexpr uint32_t kHalfHour = 1800;
  constexpr uint32_t kWatch = 1;
  if (moveGuide()) {
    bool playing = false;
    {
      const MutexLock lock(state().mutex);
      playing = state().playing;
    }
    if (playing) report(AFW_EVENT_TRANSITION);
    reportGuide();
  }
  const auto rest = std::chrono::seconds(kHalfHour - utcSeconds() % kHalfHour);
  workers().events.post(watchClock, rest, kWatch);
}

// Reports the first events. Called when AIFW_init() and the registration of a callback are done.
void begin() {
  moveGuide();
  reportTime(AFW_STT_UPDATE);
  reportGuide();
  workers().events.post(watchClock);
}

// Plays a service. Null fails.
int play(const Service* service) REQUIRES(state().mutex) {
  if (service == nullptr || state().standby) return kFailure;
  const bool otherInput = service->inputSource != currentInput();
  const bool same = state().playing && state().current == service;
  state().current = service;
  state().playing = true;
  if (!same) state().locked = false;
  const bool closed =
      (flagsOf(*service) & AISRV_FLAG_LOCKED) != 0 && !state().openNext && state().passwordRequired;
  state().openNext = false;
  changeSettings({{"input", service->inputSource},
                  {"last." + std::to_string(service->inputSource), service->rec}});
  if (state().tuned != service->frequency) {
    state().tuned = service->frequency;
    post(AFW_TUNER_LOCKED);
  }
  post(AFW_CHANNEL_PLAY_SUCCESS);
  if (closed != state().locked) post(closed ? AFW_CHANNEL_LOCKED : AFW_CHANNEL_UNLOCKED);
  state().locked = closed;
  if (otherInput) reportGuide();
  return kSuccess;
}

bool deleted(const Service& service) { return (flagsOf(service) & AISRV_FLAG_DELETED) != 0; }

// Returns the first service of an input source that is not deleted, or null. `frequency` restricts
// the search to one carrier, unless it is 0.
const Service* firstService(uint32_t inputSource, uint32_t frequency) {
  for (const Service* service : listedServices(inputSource)) {
    if (!deleted(*service) && (frequency == 0 || service->frequency == frequency)) return service;
  }
  return nullptr;
}

// Returns the service that played last on an input source, its first service if there is none, or
// null.
const Service* lastService(uint32_t inputSource) {
  const Service* const last = listedService(
      static_cast<uint32_t>(setting("last." + std::to_string(inputSource), 0)), inputSource);
  return last != nullptr && !deleted(*last) ? last : firstService(inputSource, 0);
}

// Unlocks the current channel until the next channel change.
void open() REQUIRES(state().mutex) {
  if (state().locked) post(AFW_CHANNEL_UNLOCKED);
  state().locked = false;
}

int emergencySetting(const char* key, int32_t highest, int32_t* value, int direction) {
  if (value == nullptr) return kFailure;
  if (direction == AIFW_EAS_READ) {
    *value = setting(key, 0);
    return kSuccess;
  }
  if (direction != AIFW_EAS_WRITE || *value < 0 || *value > highest) return kFailure;
  return changeSettings({{key, *value}}) ? kSuccess : kFailure;
}

}  // namespace

void report(AFW_event_t event) { post(event); }

void reportTime(AFW_event_t event) {
  AIFW_time_data time = {};
  time.system_time = utcSeconds() - kGpsEpoch + kLeapSeconds;
  time.gps_utc_offset = kLeapSeconds;
  post(event, time);
}

void reportGuide() {
  std::vector<uint32_t> sources;
  for (const Service* service : listedServices(currentInput())) {
    sources.push_back(service->sourceId);
  }
  if (sources.empty()) return;
  post(AFW_EPG_UPDATE, {}, std::move(sources));
  post(AFW_EPG_COMPLETE);
}

void endPlaying() {
  const MutexLock lock(state().mutex);
  state().playing = state().locked = false;
  state().tuned = 0;
}

}  // namespace minimal

using namespace minimal;

int AIFW_init(int /*mode*/) {
  const MutexLock lock(state().mutex);
  if (!state().initialised && state().callback != nullptr) begin();
  state().initialised = true;
  return kSuccess;
}

int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback) {
  const MutexLock lock(state().mutex);
  const bool first = state().callback == nullptr && callback != nullptr;
  state().callback = callback;
  if (first && state().initialised) begin();
  return kSuccess;
}

int AIFW_get_event_update_data(AIFW_event_update_data* data) {
  if (data == nullptr) return kFailure;
  const MutexLock lock(state().mutex);
  data->count = std::min<uint32_t>(AIFW_MAX_UPDATED_SOURCES, state().updated.size());
  std::copy_n(state().updated.begin(), data->count, data->source_ids);
  return kSuccess;
}

// Returns 0: no alert is received.
int AIFW_get_EAS_priority(uint8_t* priority) {
  if (priority == nullptr) return kFailure;
  *priority = 0;
  return kSuccess;
}

int AIFW_powerTransition_request(int powerdown) {
  const MutexLock lock(state().mutex);
  if (powerdown != 0) {
    state().standby = true;
    state().playing = state().locked = false;
    state().tuned = 0;
  } else if (state().standby) {
    state().standby = false;
    play(lastService(currentInput()));
  }
  return kSuccess;
}

int AIFW_play_src(uint32_t /*path*/, uint32_t inputSource) {
  const MutexLock lock(state().mutex);
  return play(lastService(inputSource));
}

int AIFW_play_curr_src(void) { return AIFW_play_src(0, currentInput()); }

int AIFW_play_first_service(uint32_t inputSource, uint32_t frequency) {
  const MutexLock lock(state().mutex);
  return play(firstService(inputSource, frequency));
}

int AIFW_stop_curr_src(void) {
  const MutexLock lock(state().mutex);
  state().playing = state().locked = false;
  return kSuccess;
}

int AIFW_channel_change(const AIFW_channel_change_request* request) {
  if (request == nullptr) return kFailure;
  const MutexLock lock(state().mutex);
  auto services = listedServices(request->input_source);
  if (request->mode == AIFW_CHANGE_DIRECT) {
    for (const Service* service : services) {
      if (service->major == request->major && service->minor == request->minor &&
          !deleted(*service)) {
        return play(service);
      }
    }
    return kFailure;
  }
  if (request->mode != AIFW_CHANGE_UP && request->mode != AIFW_CHANGE_DOWN) return kFailure;
  const Service* const current = state().current;
  const auto leaveOut = [current](const Service* service) {
    constexpr uint32_t kOut = AISRV_FLAG_SKIPPED | AISRV_FLAG_DELETED;
    return service != current && (flagsOf(*service) & kOut) != 0;
  };
  services.erase(std::remove_if(services.begin(), services.end(), leaveOut), services.end());
  if (services.empty()) return kFailure;
  if (request->mode == AIFW_CHANGE_DOWN) std::reverse(services.begin(), services.end());
  // If the current service is not in the list, the first service follows.
  auto next = std::find(services.begin(), services.end(), current);
  if (next != services.end()) ++next;
  return play(next != services.end() ? *next : services.front());
}

int AIFW_change_audio(uint8_t track) {
  constexpr uint8_t kTracks = 2;
  const MutexLock lock(state().mutex);
  const Service* const current = state().current;
  if (current == nullptr || track < 1 || track > kTracks) return kFailure;
  return changeSettings({{"audio." + std::to_string(current->rec), track}}) ? kSuccess : kFailure;
}

int AIFW_passwd_reqd_non_play_src(int required) {
  const MutexLock lock(state().mutex);
  state().passwordRequired = required != 0;
  return kSuccess;
}

int AIFW_pwd_unlocked_no_playing(int unlocked) {
  const MutexLock lock(state().mutex);
  if (unlocked == 0) {
    state().openNext = false;
  } else if (state().playing) {
    open();
  } else {
    state().openNext = true;
  }
  return kSuccess;
}

int AIFW_pwd_unlocked_no_checking_status(int unlocked) {
  const MutexLock lock(state().mutex);
  if (!state().playing) return kFailure;
  if (unlocked != 0) {
    open();
  } else if (!state().locked && (flagsOf(*state().current) & AISRV_FLAG_LOCKED) != 0) {
    state().locked = true;
    post(AFW_CHANNEL_LOCKED);
  }
  return kSuccess;
}

int AIFW_handle_tuner_mode_change(int mode) {
  if (mode != AI_INPUT_TERRESTRIAL && mode != AI_INPUT_CABLE) return kFailure;
  if (static_cast<uint32_t>(mode) == currentInput()) return kSuccess;
  changeSettings({{"input", mode}});
  reportGuide();
  return kSuccess;
}

int AIFW_user_eas_setting(int32_t* value, int direction) {
  return emergencySetting("eas_alerts", AIFW_EAS_MAXIMUM, value, direction);
}

int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction) {
  return emergencySetting("eas_repeats", 1, value, direction);
}

int AIFW_enable_eas_cable_only(int32_t* value, int direction) {
  return emergencySetting("eas_cable_only", 1, value, direction);
}

int AICN_get_current(AISRV_service_info* record) {
  const MutexLock lock(state().mutex);
  if (record == nullptr || state().current == nullptr) return kFailure;
  fillRecord(*state().current, record);
  return kSuccess;
}

int AICN_get_curr_input_source(void) { return static_cast<int>(currentInput()); }

int AICN_get_chan_state(void) {
  const MutexLock lock(state().mutex);
  return state().playing ? 1 : 0;
}

// The platform starts playing only on request.
int AICN_set_skip_play_srv(int /*skip*/) { return kSuccess; }

int AICN_get_tuner_mode(void) { return AICN_get_curr_input_source(); }

// A new lock takes effect with the next channel change in either case.
int AICN_set_play_from_ap(int /*fromApplication*/) { return kSuccess; }

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  if (tuner != AIFE_MAIN_TUNER || path != AIFE_MAIN_PATH || details == nullptr) return kFailure;
  const MutexLock lock(state().mutex);
  details->frequency = state().tuned;
  details->modulation = modulationOf(currentInput());
  return kSuccess;
}

int AIFE_tune_stop_request(uint32_t tuner, uint32_t path) {
  if (tuner != AIFE_MAIN_TUNER || path != AIFE_MAIN_PATH) return kFailure;
  endPlaying();
  return kSuccess;
}

// Playing starts and stops at once, so that no state is in between.
int AIPT_get_index_status(int* status, int /*path*/) {
  if (status == nullptr) return kFailure;
  *status = AICN_get_chan_state();
  return kSuccess;
}

// Nothing to do without video.
int AIVC_close_video(uint32_t /*path*/) { return kSuccess; }
