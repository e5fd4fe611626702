#ifndef ATSC_TESTS_SUPPORT_WAIT_H_
#define ATSC_TESTS_SUPPORT_WAIT_H_

#include <chrono>
#include <thread>

// Polls `condition` until it is true. Returns false after the limit, which allows for an emulator.
template <typename Condition>
bool eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(100)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

#endif  // ATSC_TESTS_SUPPORT_WAIT_H_
