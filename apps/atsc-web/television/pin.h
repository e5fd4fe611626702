// The viewer's PIN.
#ifndef ATSC_WEB_TELEVISION_PIN_H_
#define ATSC_WEB_TELEVISION_PIN_H_

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace web {

// Keeps the PIN as a hash in a file, with the count of wrong guesses: a restart does not shorten
// the wait. The PIN itself is neither kept nor logged. Any thread; one check at a time.
class Pin {
 public:
  using Clock = std::chrono::steady_clock;

  enum class State {
    kNone,    // not chosen yet
    kSet,     // asked for
    kBroken,  // the file is there, but cannot be used: nothing is unlocked until it is removed
  };
  struct Status {
    State state;
    double wait;  // seconds until the next guess
  };
  enum class Answer {
    kRight,
    kWrong,
    kWait,    // not looked at: too many wrong guesses before
    kNone,    // no PIN is set
    kForm,    // not 4 to 8 digits
    kBroken,  // see State
    kFailed,  // the file cannot be written
  };

  // `file` need not exist. `firstWait` follows the third wrong guess, and doubles with each more.
  explicit Pin(std::string file, std::chrono::seconds firstWait = std::chrono::seconds(5));

  Status status();

  // Sets the PIN; `old` must be right if one is set. Ends all grants.
  Answer set(const std::string& pin, const std::string& old);
  Answer check(const std::string& pin);

  // Returns a text that stands for the PIN until it was not used for ten minutes.
  std::string grant();
  bool isGranted(const std::string& grant);
  void endGrant(const std::string& grant);

 private:
  struct Record {
    std::string hash;
    int wrong = 0;
    int64_t until = 0;  // Unix seconds
  };
  struct Content {
    State state = State::kNone;
    Record record;
  };

  Content read();
  // Require checking_.
  bool write(const Record& record);
  Answer checkLocked(const std::string& pin);

  std::chrono::seconds waitAfter(int wrong) const;
  double waitOf(const Record& record);

  const std::string file_;
  const std::chrono::seconds firstWait_;
  std::mutex checking_;  // taken for a while: a hash takes its time
  std::atomic<bool> loggedBroken_{false};
  std::mutex mutex_;
  std::map<std::string, Clock::time_point> grants_;  // with their ends; guarded by mutex_
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_PIN_H_
