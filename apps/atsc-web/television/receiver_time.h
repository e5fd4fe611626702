// The receiver's clock between its replies.
#ifndef ATSC_WEB_TELEVISION_RECEIVER_TIME_H_
#define ATSC_WEB_TELEVISION_RECEIVER_TIME_H_

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace web {

// The service tells whole seconds. Each reply narrows how far the receiver's clock is ahead of
// this process's clock; one that does not fit says that the clock was set.
class ReceiverTime {
 public:
  using Clock = std::chrono::steady_clock;

  // The service told `utc` at a time from `asked` to `answered`.
  void learn(int64_t utc, Clock::time_point asked, Clock::time_point answered) {
    const double least = static_cast<double>(utc) - seconds(answered);
    const double most = static_cast<double>(utc) + 1 - seconds(asked);
    const bool fits = known_ && least < most_ && most > least_;
    least_ = fits ? std::max(least_, least) : least;
    most_ = fits ? std::min(most_, most) : most;
    known_ = true;
  }

  bool isKnown() const { return known_; }
  // Returns Unix seconds.
  double at(Clock::time_point time) const { return seconds(time) + (least_ + most_) / 2; }

 private:
  static double seconds(Clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
  }

  bool known_ = false;
  double least_ = 0;
  double most_ = 0;
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_RECEIVER_TIME_H_
