// Functions for the tests.
#include "fake_state.h"

namespace fake {

void resetBus();

std::string utf16(const std::string& ascii) {
  std::string bytes;
  for (const char c : ascii) {
    bytes += '\0';
    bytes += c;
  }
  return bytes;
}

Service service(uint16_t major, uint16_t minor, uint32_t frequency, const std::string& name,
                uint32_t input) {
  Service made;
  made.info.service_id = {static_cast<uint32_t>(major * 100 + minor), input};
  made.info.service_type = AISRV_TYPE_TV;
  made.info.major = major;
  made.info.minor = minor;
  made.info.frequency = frequency;
  made.info.source_id = minor;
  made.info.modulation = input == AI_INPUT_TERRESTRIAL ? AI_MODULATION_8VSB : AI_MODULATION_QAM;
  made.info.AISRV_flags_ = AISRV_FLAG_VISIBLE;
  made.info.transport_stream_id = 4711;
  made.name = utf16(name);
  AISRV_pid_info video{};
  video.stream_type = 0x02;
  video.pid = 49;
  AISRV_pid_info audio{};
  audio.stream_type = 0x81;
  audio.pid = 52;
  memcpy(audio.language, "eng", 3);
  made.pids = {video, audio};
  return made;
}

void setNoise(std::string bytes) {
  std::lock_guard<std::mutex> lock(gNoiseMutex);
  gNoise = std::move(bytes);
  gNoiseUsed = 0;
  gNoisy = !gNoise.empty();
}

void reset() {
  resetBus();
  setNoise({});
  std::lock_guard<std::mutex> lock(gMutex);
  state() = State();
}

std::vector<std::string> calls() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().calls;
}

void onCall(std::function<void(const std::string&)> hook) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().hook = std::move(hook);
}

void setResult(const std::string& function, int status) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().results[function] = status;
}

void setServices(uint32_t input, std::vector<Service> services) {
  std::lock_guard<std::mutex> lock(gMutex);
  for (const Service& service : services) {
    state().pids[serviceKey(service.info.service_id)] = service.pids;
  }
  state().services[input] = std::move(services);
}

void claimCount(uint32_t count) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().countIsClaimed = true;
  state().claimedCount = count;
}

void setEvents(const Service& service, std::vector<Event> events) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().events[serviceKey(service.info.service_id)] = std::move(events);
}

void claimEventCount(uint16_t count) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().eventCountIsClaimed = true;
  state().claimedEventCount = count;
}

void setUpdatedSources(std::vector<uint32_t> ids) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().update.count = static_cast<uint32_t>(ids.size());
  std::copy_n(ids.begin(), std::min<size_t>(ids.size(), AIFW_MAX_UPDATED_SOURCES),
              state().update.source_ids);
}

void claimUpdatedSources(uint32_t count) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().update.count = count;
}

void setAlertPriority(uint8_t priority) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().alertPriority = priority;
}

AIFW_app_callback eventCallback() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().eventCallback;
}

bool fireTimer() {
  OSAL_timer_handler handler = nullptr;
  void* argument = nullptr;
  {
    std::lock_guard<std::mutex> lock(gMutex);
    std::swap(handler, state().timerHandler);
    argument = state().timerArgument;
  }
  if (handler != nullptr) handler(argument, 0);
  return handler != nullptr;
}

void setTime(uint32_t seconds) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().time = seconds;
}

void setCurrent(const Service& service, int input) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().hasCurrent = true;
  state().current = service;
  state().currentInput = input;
}

void setTunedFrequency(uint32_t frequency) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().tunedFrequency = frequency;
}

void setLanguages(int32_t first, int32_t second) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().languages[0] = first;
  state().languages[1] = second;
}

void setTimeInfo(const AIST_system_time_info& info) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().timeInfo = info;
}

void setTimeDate(const AIST_time_date& date) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().timeDate = date;
}

void setCaptions(const AICC_cc_service_data& captions) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().captions = captions;
}

void setParental(const Parental& parental) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().parental = parental;
}

AIPC_dime_t storedRating() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().storedRating;
}

std::string checkedRating() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().checkedRating;
}

Service modifiedService() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().modified;
}

void setIndexStatus(std::vector<int> statuses) {
  std::lock_guard<std::mutex> lock(gMutex);
  state().indexStatuses = std::move(statuses);
}

AICS_scan_callback scanCallback() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().callback;
}

AICS_search_request lastSearch() {
  std::lock_guard<std::mutex> lock(gMutex);
  return state().search;
}

}  // namespace fake
