#ifndef ATSC_TESTS_SUPPORT_ARRIVALS_H_
#define ATSC_TESTS_SUPPORT_ARRIVALS_H_

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

// Values that other threads add, in their order.
template <typename Value>
class Arrivals {
 public:
  void add(Value value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    values_.push_back(std::move(value));
    changed_.notify_all();
  }

  void clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    values_.clear();
  }

  // Waits for `wanted` values and removes all.
  std::vector<Value> take(size_t wanted) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kPatience, [&] { return values_.size() >= wanted; });
    return std::exchange(values_, {});
  }

  // Waits for a value that is `wanted` and removes it and all before it. Returns nothing when it
  // does not come.
  template <typename Wanted>
  std::vector<Value> takeUntil(Wanted wanted) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto end = values_.begin();
    const bool came = changed_.wait_for(lock, kPatience, [&] {
      end = std::find_if(values_.begin(), values_.end(), wanted);
      return end != values_.end();
    });
    if (!came) return {};
    std::vector<Value> taken(values_.begin(), ++end);
    values_.erase(values_.begin(), end);
    return taken;
  }

 private:
  static constexpr std::chrono::seconds kPatience{100};

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Value> values_;
};

#endif  // ATSC_TESTS_SUPPORT_ARRIVALS_H_
