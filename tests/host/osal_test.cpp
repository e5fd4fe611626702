#include "osal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "arrivals.h"
#include "role.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A timer, and the threads and times of the calls of its handler.
struct Probe {
  Probe() { EXPECT_EQ(OSAL_timer_create("probe", 2, &timer), 0); }

  static void fired(void* arg, int value) {
    EXPECT_EQ(value, 0);
    static_cast<Probe*>(arg)->calls.add({std::this_thread::get_id(), Clock::now()});
  }

  int enable(uint32_t delay) { return OSAL_timer_enable(timer, fired, this, delay); }

  OSAL_timer_id timer = 0;
  Arrivals<std::pair<std::thread::id, Clock::time_point>> calls;
};

TEST(OsalTimer, FiresOnceForEachEnableOnItsThreadAfterTheLastDelay) {
  Probe probe, early;
  // Fires, after the earlier calls of enable().
  const auto expectCall = [&](uint32_t delay) {
    const auto start = Clock::now();
    ASSERT_EQ(probe.enable(delay), 0);
    const auto calls = probe.calls.take(1);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_GE(calls[0].second - start, milliseconds(delay));
    EXPECT_NE(calls[0].first, std::this_thread::get_id());
  };
  for (int round = 0; round < 3; ++round) expectCall(20);
  ASSERT_EQ(probe.enable(60000), 0);  // the thread already waits for this one
  ASSERT_EQ(early.enable(0), 0);
  EXPECT_EQ(early.calls.take(1).size(), 1u);
  ASSERT_EQ(probe.enable(150), 0);
  expectCall(300);

  OSAL_timer_id timer = 0;
  EXPECT_NE(OSAL_timer_create("x", 1, &timer), 0);
  EXPECT_EQ(OSAL_timer_create(nullptr, 2, &timer), 0);
  for (const OSAL_timer_id unknown : {OSAL_timer_id{0}, timer + 1})
    EXPECT_NE(OSAL_timer_enable(unknown, Probe::fired, nullptr, 1), 0);
  EXPECT_NE(OSAL_timer_enable(timer, nullptr, nullptr, 1), 0);
}

TEST(OsalTimer, HandlersMayUseTimersAndThrowAndAreWaitedForAtExit) {
  Helper busy({"busy"});
  EXPECT_EQ(busy.hear(), 'H');
  busy.say('g');
  EXPECT_EQ(busy.hear(), 'E');
  EXPECT_EQ(busy.wait(), 6);
}

void stay(void* entered, int) {
  tell('H');
  static_cast<std::promise<void>*>(entered)->set_value();
  listen();
  tell('E');
}

int busyRole(const std::vector<std::string>&) {
  static std::promise<void> entered;
  OSAL_timer_id timer = 0;
  OSAL_timer_create("busy", 2, &timer);
  const auto handler = [](void*, int) {
    OSAL_timer_id second = 0;
    OSAL_timer_create("second", 2, &second);
    OSAL_timer_enable(second, stay, &entered, 0);
    throw std::runtime_error("a handler's mistake");
  };
  OSAL_timer_enable(timer, handler, nullptr, 0);
  entered.get_future().wait();
  return 6;
}

const AddRoles kAddBusy({{"busy", busyRole}});

}  // namespace
