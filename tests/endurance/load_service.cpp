// Linked into the service: a busy middleware. Besides the host's events, four threads raise events
// while the file in the environment variable LOAD_EVENTS exists. Then the service prints "raised N
// times, N alerts". All the time it writes the size of its heap to LOAD_EVENTS.heap.
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "files.h"

namespace {

// Pause between two events of a thread. An hour of a busy evening has some 40,000 events in all.
constexpr std::chrono::milliseconds kPause{20};

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

void work(const std::string& events) {
  const auto wanted = [&] {
    const struct mallinfo2 heap = mallinfo2();
    replaceFile(events + ".heap", std::to_string(heap.uordblks + heap.hblkhd));
    std::this_thread::sleep_for(kPause);
    return access(events.c_str(), F_OK) == 0;
  };
  while (!wanted()) {
  }
  constexpr void (*kRaise[])(uint32_t) = {raiseTime, raiseAlert, raiseShort, raiseGuide};
  std::atomic<bool> on = true;
  uint32_t counts[std::size(kRaise)] = {};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < std::size(kRaise); ++i) {
    threads.emplace_back([&, i] {
      while (on) {
        kRaise[i](++counts[i]);
        std::this_thread::sleep_for(kPause);
      }
    });
  }
  while (wanted()) {
  }
  on = false;
  for (std::thread& thread : threads) thread.join();
  printf("raised %u times, %u alerts\n", counts[0], counts[1]);
  fflush(stdout);
  for (;;) wanted();
}

// Starts the threads beside the main() of atsc-service.
const bool kStarted = [] {
  if (const char* const events = getenv("LOAD_EVENTS")) std::thread(work, events).detach();
  return true;
}();

}  // namespace
