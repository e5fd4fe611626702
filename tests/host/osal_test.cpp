#include "osal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include "role.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A timer and the calls of its handler.
struct Probe {
  Probe() { EXPECT_EQ(OSAL_timer_create("probe", 2, &timer), 0); }

  static void fired(void* arg, int value) {
    Probe& probe = *static_cast<Probe*>(arg);
    EXPECT_EQ(value, 0);
    probe.thread = std::this_thread::get_id();
    ++probe.count;
    probe.once.set_value(Clock::now());
  }

  int enable(uint32_t delay) { return OSAL_timer_enable(timer, fired, this, delay); }

  OSAL_timer_id timer = 0;
  std::atomic<int> count{0};
  std::atomic<std::thread::id> thread{};
  std::promise<Clock::time_point> once;
};

TEST(OsalTimer, FiresOnceForEachEnableOnItsThreadAfterTheLastDelay) {
  Probe probe, early;
  for (int round = 1; round <= 3; ++round) {
    probe.once = {};
    const auto start = Clock::now();
    ASSERT_EQ(probe.enable(20), 0);
    EXPECT_GE(probe.once.get_future().get() - start, milliseconds(20));
    EXPECT_EQ(probe.count, round);
  }
  EXPECT_NE(probe.thread.load(), std::this_thread::get_id());

  probe.once = {};
  ASSERT_EQ(probe.enable(60000), 0);  // the thread already waits for this one
  ASSERT_EQ(early.enable(0), 0);
  early.once.get_future().wait();
  ASSERT_EQ(probe.enable(150), 0);
  const auto start = Clock::now();
  ASSERT_EQ(probe.enable(300), 0);
  EXPECT_GE(probe.once.get_future().get() - start, milliseconds(300));
  EXPECT_EQ(probe.count, 4) << "not at 150 ms";

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

const AddRoles kAddRoles({{"busy", busyRole}});

}  // namespace
