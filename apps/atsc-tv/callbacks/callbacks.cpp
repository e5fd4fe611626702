#include "callbacks/callbacks.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <optional>

#include "common/service.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

// More messages than any scan sends; reached only if standard output is blocked for long.
constexpr size_t kMaxWaiting = 10000;

static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler writes one");

}  // namespace

Callbacks* Callbacks::instance_ = nullptr;

Callbacks::Callbacks() : arrivals_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Callbacks& Callbacks::start() {
  // Never destroyed: the library may call the object until the process ends.
  instance_ = new Callbacks;
  struct sigaction action = {};
  action.sa_handler = interrupt;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  if (const int owner = registerTv(instance_); owner != 0) {
    throw Failure(kOtherTV, "another TV application is registered" +
                                (owner > 0 ? ", process " + std::to_string(owner)
                                           : std::string(", or ") + kTvFile + " is in the way"));
  }
  return *instance_;
}

Callbacks::Event Callbacks::wait(std::chrono::milliseconds timeout, std::string* message,
                                 pid_t process) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + timeout;
  const int end = process > 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1;
  std::optional<Event> event;
  while (!event) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
    pollfd waited[] = {{arrivals_, POLLIN, 0}, {end, POLLIN, 0}};
    const bool over =
        poll(waited, 2, end >= 0 ? -1 : std::max(0, static_cast<int>(left.count()))) == 0;
    eventfd_t arrived;
    eventfd_read(arrivals_, &arrived);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (interrupted_.exchange(false)) {
      event = Event::kInterrupt;
    } else if (!messages_.empty()) {
      event = Event::kMessage;
      *message = std::move(messages_.front());
      messages_.pop_front();
      if (!messages_.empty()) wake();
    } else if (over || waited[1].revents != 0) {
      event = Event::kTimeout;
    }
  }
  if (end >= 0) close(end);
  return *event;
}

int Callbacks::jsonCommand(const char* command, char**) {
  if (command == nullptr) return -1;
  try {
    std::lock_guard<std::mutex> lock(mutex_);
    if (messages_.size() >= kMaxWaiting) return -1;
    messages_.emplace_back(command);
  } catch (const std::exception&) {
    return -1;
  }
  wake();
  return 0;
}

void Callbacks::interrupt(int) {
  instance_->interrupted_ = true;
  instance_->wake();
}

void Callbacks::wake() { eventfd_write(arrivals_, 1); }

}  // namespace apps::tv
