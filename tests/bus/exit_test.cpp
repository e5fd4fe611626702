// A program that returns from main() while the callback threads are at work ends cleanly.
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <stdlib.h>

#include <thread>

#include "fake.h"

int main() {
  setenv("ATSC_EVENT_DB", "/nonexistent/events.db", 1);
  ATSC_Service_init(nullptr);
  // Goes on raising events to the very end.
  std::thread([] {
    for (;;) {
      ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
      ATSC_Service_event_cb(AFW_EPG_COMPLETE, nullptr);
    }
  }).detach();
  return fake::waitForSent(500).size() >= 500 ? 0 : 1;
}
