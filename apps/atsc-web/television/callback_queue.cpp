#include "television/callback_queue.h"

#include <exception>
#include <utility>

namespace web {
namespace {

// More messages than any scan sends.
constexpr size_t kMaxMessages = 10000;

}  // namespace

CallbackQueue& CallbackQueue::instance() {
  static CallbackQueue& queue = *new CallbackQueue;
  return queue;
}

int CallbackQueue::jsonCommand(const char* command, char**) {
  if (command == nullptr) return -1;
  try {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (messages_.size() >= kMaxMessages) return -1;
    messages_.emplace_back(command);
  } catch (const std::exception&) {
    return -1;
  }
  arrived_.notify_one();
  return 0;
}

std::optional<std::string> CallbackQueue::next() {
  std::unique_lock<std::mutex> lock(mutex_);
  arrived_.wait(lock, [this] { return ends_ || !messages_.empty(); });
  if (ends_) return std::nullopt;
  std::string message = std::move(messages_.front());
  messages_.pop_front();
  return message;
}

void CallbackQueue::end() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ends_ = true;
  }
  arrived_.notify_all();
}

void CallbackQueue::begin() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ends_ = false;
}

}  // namespace web
