// Functions for the tests.
#include "fake_state.h"

#include <utility>

namespace fake {

State& LockedState::instance() {
  static State* const state = new State;
  return *state;
}

std::string utf16(const std::string& ascii) {
  std::string bytes;
  for (const char c : ascii) bytes += {'\0', c};
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
  made.pids = {{0x02, 0, 49, {}, {}, 0, 0, 0, 0}, {0x81, 0, 52, {'e', 'n', 'g'}, {}, 0, 0, 0, 0}};
  return made;
}

void setRecording(bool on) { gRecording = on; }

void setNoise(std::string bytes) {
  std::lock_guard<std::mutex> lock(gNoiseMutex);
  gNoise = std::move(bytes);
  gNoiseUsed = 0;
  gNoisy = !gNoise.empty();
}

void reset() {
  setNoise({});
  State empty;
  const auto locked = state();
  empty.servers = std::move(locked->servers);
  *locked = std::move(empty);
}

void setServices(uint32_t input, std::vector<Service> services) {
  const auto locked = state();
  for (const Service& service : services) {
    locked->pids[serviceKey(service.info.service_id)] = service.pids;
  }
  locked->services[input] = std::move(services);
}

void setUpdatedSources(const std::vector<uint32_t>& ids) {
  const auto locked = state();
  locked->update.count = static_cast<uint32_t>(ids.size());
  std::copy_n(ids.begin(), std::min<size_t>(ids.size(), AIFW_MAX_UPDATED_SOURCES),
              locked->update.source_ids);
}

void setCurrent(const Service& service, int input) {
  const auto locked = state();
  locked->current = service;
  locked->currentInput = input;
}

bool fireTimer() {
  const OSAL_timer_handler handler = std::exchange(state()->timerHandler, nullptr);
  void* const argument = state()->timerArgument;
  if (handler != nullptr) handler(argument, 0);
  return handler != nullptr;
}

}  // namespace fake
