// End of a process that has loaded the library: from main() while threads run, as a forked child,
// and with the command thread inside the middleware.
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>

#include "fake.h"

namespace {

constexpr char kChange[] = "{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\"}";

// Runs `body` in the middleware, on the command thread.
void inTheMiddleware(void (*body)()) {
  static std::atomic<bool> entered{false};
  fake::onCall([body](const std::string& call) {
    if (call.rfind("AIFW_channel_change", 0) != 0) return;
    entered = true;
    body();
  });
  ATSC_TransmitServiceClientJSONCommand(kChange, nullptr);
  while (!entered) std::this_thread::yield();
}

// Returns from main() while the callback threads send and events are raised until the end.
int atWork() {
  setenv("ATSC_EVENT_DB", "/nonexistent/events.db", 1);
  ATSC_Service_init(nullptr);
  std::thread([] {
    for (;;) {
      ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
      ATSC_Service_event_cb(AFW_EPG_COMPLETE, nullptr);
    }
  }).detach();
  return fake::waitForSent(500).size() >= 500 ? 0 : 1;
}

// A forked child that ends like its parent. The command thread rests at the fork: the child would
// never get a lock of the sanitizer's that it held.
int child() {
  static std::atomic<bool> forked{false};
  inTheMiddleware([] {
    while (!forked) std::this_thread::yield();
  });
  const pid_t pid = fork();
  if (pid == 0) exit(0);
  int status = -1;
  waitpid(pid, &status, 0);
  forked = true;
  return status;
}

// A channel change that does not return before the end of the process.
int stuck() {
  inTheMiddleware([] { std::this_thread::sleep_for(std::chrono::hours(1)); });
  return 0;
}

// Exits on the command thread.
int onTheThread() {
  inTheMiddleware([] { exit(0); });
  std::this_thread::sleep_for(std::chrono::hours(1));
  return 1;
}

}  // namespace

int main(int, char** argv) {
  const std::map<std::string, int (*)()> ways = {
      {"at_work", atWork}, {"child", child}, {"stuck", stuck}, {"thread", onTheThread}};
  alarm(60);
  return ways.at(argv[1])();
}
