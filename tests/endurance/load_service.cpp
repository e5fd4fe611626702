// atsc-service with a busy middleware: besides the host's events, four threads raise events while
// the file in the environment variable LOAD_EVENTS exists. Then it prints "raised N times, N
// alerts".
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

// Pause between two events of a thread. An hour of a busy evening has some 40,000 events in all.
constexpr std::chrono::milliseconds kPause{20};

bool wanted() { return access(getenv("LOAD_EVENTS"), F_OK) == 0; }

// Calls `raise` with 1, 2, … and returns the number of calls.
template <typename Raise>
uint32_t repeat(Raise raise) {
  uint32_t count = 0;
  while (wanted()) {
    raise(++count);
    std::this_thread::sleep_for(kPause);
  }
  return count;
}

void raiseTime(uint32_t count) {
  AIFW_time_data time{};
  time.system_time = count;
  ATSC_Service_event_cb(count % 2 == 0 ? AFW_STT_UPDATE : AFW_TIME_CHANGE, &time);
}

void raiseAlert(uint32_t count) {
  std::string text = std::to_string(count) + ": leave the valley";
  multiple_lang_t alert{reinterpret_cast<uint8_t*>(&text[0]), static_cast<uint16_t>(text.size()),
                        0};
  ATSC_Service_event_cb(count % 2 == 0 ? AFW_EAS_START_BLOCKING : AFW_EAS_START_NON_BLOCKING,
                        &alert);
}

void raiseShort(uint32_t count) {
  constexpr AFW_event_t kEvents[] = {AFW_EIT_UPDATE,       AFW_EVENT_TRANSITION, AFW_RRT_UPDATE,
                                     AFW_PARENTAL_UPDATE,  AFW_VIEWING_DELAY,    AFW_EAS_STOP,
                                     AFW_CHANNEL_UNLOCKED, AFW_SERVICE_ADDED,    AFW_INVALID,
                                     AFW_TUNER_LOCKED,     AFW_EPG_UPDATE + 200};
  ATSC_Service_event_cb(kEvents[count % std::size(kEvents)], nullptr);
}

// Raises an update of the whole guide every five seconds.
void raiseGuide(uint32_t count) {
  if (count % 250 == 0) {
    ATSC_Service_event_cb(count % 500 == 0 ? AFW_EPG_COMPLETE : AFW_EPG_UPDATE, nullptr);
  }
}

void work() {
  while (!wanted()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  uint32_t times = 0;
  uint32_t alerts = 0;
  std::vector<std::thread> threads;
  threads.emplace_back([&] { times = repeat(raiseTime); });
  threads.emplace_back([&] { alerts = repeat(raiseAlert); });
  threads.emplace_back([] { repeat(raiseShort); });
  threads.emplace_back([] { repeat(raiseGuide); });
  for (std::thread& thread : threads) thread.join();
  printf("raised %u times, %u alerts\n", times, alerts);
  fflush(stdout);
}

// Starts the threads beside the main() of atsc-service.
const bool kStarted = [] {
  if (getenv("LOAD_EVENTS") != nullptr) std::thread(work).detach();
  return true;
}();

}  // namespace
