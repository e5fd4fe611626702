#include "worker.h"

#include <exception>
#include <utility>

namespace minimal {

bool Worker::post(std::function<void()> job, std::chrono::milliseconds delay, uint32_t key) {
  try {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (ended_) return false;
    jobs_.emplace(std::chrono::steady_clock::now() + delay, Job{std::move(job), key});
    if (!thread_.joinable()) thread_ = std::thread(&Worker::run, this);
  } catch (const std::exception&) {
    return false;
  }
  changed_.notify_one();
  return true;
}

void Worker::cancel(uint32_t key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto job = jobs_.begin(); job != jobs_.end();) {
    job = job->second.key == key ? jobs_.erase(job) : std::next(job);
  }
}

void Worker::end() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  if (!thread_.joinable()) return;
  // exit() may have been called by a job.
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void Worker::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!ended_) {
    if (jobs_.empty()) {
      changed_.wait(lock);
      continue;
    }
    const auto time = jobs_.begin()->first;
    if (time > std::chrono::steady_clock::now()) {
      changed_.wait_until(lock, time);
      continue;
    }
    const std::function<void()> job = std::move(jobs_.begin()->second.run);
    jobs_.erase(jobs_.begin());
    lock.unlock();
    job();
    lock.lock();
  }
}

}  // namespace minimal
