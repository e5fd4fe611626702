// Channel changes and changes of the channel list, one command per line up to an empty line. The
// rest of the input is noise of the middleware. Channel changes are queued, so each input waits for
// the command thread.
#include <pthread.h>
#include <time.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "harness.h"

// Speeds up time by a thousand, so that the command thread does not wait 100 ms between two
// commands: the steady clock, and timed waits on it, which are allowed to end early.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  static const time_t start = time.tv_sec;
  return time_point(duration(1000 * ((time.tv_sec - start) * 1000000000LL + time.tv_nsec)));
}

extern "C" int pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t* mutex, clockid_t,
                                      const timespec*) noexcept(false) {
  pthread_mutex_unlock(mutex);
  const timespec moment{0, 20000};
  nanosleep(&moment, nullptr);
  pthread_mutex_lock(mutex);
  return 0;
}

namespace {

// The last command of every input.
constexpr char kLast[] = R"({"class":"FW","command":"CHANNELCHANGE","service_record":987654321})";

std::mutex gMutex;
std::condition_variable gChanged;
enum { kWaiting, kLastRuns, kDone } gProgress;

// The last change is complete when it has requested the playing channel; no channel plays then.
void onCall(const std::string& call) {
  const std::lock_guard<std::mutex> lock(gMutex);
  if (call.rfind("AIFW_channel_change(", 0) == 0 && call.find(",987654321,") != std::string::npos) {
    fake::setNoise({});
    fake::setResult("AICN_get_current", -1);
    gProgress = kLastRuns;
  }
  if (gProgress == kLastRuns && call.rfind("AICN_get_current(", 0) == 0) {
    gProgress = kDone;
    gChanged.notify_all();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Harness::restored();
  fuzz::Input input(data, size);
  const std::vector<std::string> lines = input.lines();
  gProgress = kWaiting;
  fake::setRecording(true);
  fake::onCall(onCall);
  fake::setIndexStatus({2, input.byte() % 4});
  fake::setNoise(input.rest());
  for (const std::string& line : lines) {
    const int result = g_atsc_server_service.jsonCommand(line.c_str(), nullptr);
    fuzz::require(result == 0 || result == -1, "a result of 0 or -1", line);
  }
  g_atsc_server_service.jsonCommand(kLast, nullptr);
  std::unique_lock<std::mutex> lock(gMutex);
  gChanged.wait(lock, [] { return gProgress == kDone; });
  return 0;
}
