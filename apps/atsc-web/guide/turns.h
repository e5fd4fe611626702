// A lock that lets the writer go first.
#ifndef ATSC_WEB_GUIDE_TURNS_H_
#define ATSC_WEB_GUIDE_TURNS_H_

#include <condition_variable>
#include <mutex>

namespace web {

// Many readers, one after the other and without a pause, would keep the writer of a std::mutex
// waiting for seconds: it is most often taken by a thread that runs already.
class Turns {
 public:
  // For readers: waits until no writer waits either.
  void lock() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !isTaken_ && writers_ == 0; });
    isTaken_ = true;
  }

  // For writers.
  void lockFirst() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++writers_;
    changed_.wait(lock, [this] { return !isTaken_; });
    --writers_;
    isTaken_ = true;
  }

  void unlock() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      isTaken_ = false;
    }
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isTaken_ = false;
  int writers_ = 0;  // that wait
};

// Holds the lock for a writer.
class WriterTurn {
 public:
  explicit WriterTurn(Turns& turns) : turns_(turns) { turns_.lockFirst(); }
  ~WriterTurn() { turns_.unlock(); }
  WriterTurn(const WriterTurn&) = delete;
  WriterTurn& operator=(const WriterTurn&) = delete;

 private:
  Turns& turns_;
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_TURNS_H_
