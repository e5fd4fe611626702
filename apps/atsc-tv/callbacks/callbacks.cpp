#include "callbacks/callbacks.h"

#include <atsc/atsc_service.h>
#include <atsc_host.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>

#include "terminal/failure.h"

namespace tv {
namespace {

constexpr const char* kTVName = "atsc.qel.tv.srv";

// More messages than any scan sends; reached only if standard output is blocked for long.
constexpr size_t kMaxWaiting = 10000;

static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler writes one");

}  // namespace

Callbacks* Callbacks::instance_ = nullptr;

Callbacks::Callbacks() { sem_init(&arrivals_, 0, 0); }

Callbacks& Callbacks::start() {
  // Never destroyed: the library may call the object until the process ends.
  instance_ = new Callbacks;
  struct sigaction action = {};
  action.sa_handler = interrupt;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  const auto refuse = [](int owner) {
    throw Failure(kOtherTV,
                  "another TV application is registered" +
                      (owner > 0 ? ", process " + std::to_string(owner)
                                 : std::string(", or /tmp/.BUS.") + kTVName + " is in the way"));
  };
  const int owner = ATSC_host_find(kTVName);
  if (owner != 0) refuse(owner);
  // Two processes that start at the same time both get here; only one of them holds the name.
  if (ATSC_RegisterTVServerBackend(instance_) != 0 || ATSC_host_find(kTVName) != getpid()) {
    refuse(ATSC_host_find(kTVName));
  }
  return *instance_;
}

Callbacks::Event Callbacks::wait(std::chrono::milliseconds timeout, std::string* message) {
  constexpr long kNanoseconds = 1000000000;
  timespec deadline = {};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
  deadline.tv_sec += static_cast<time_t>(seconds.count());
  deadline.tv_nsec += static_cast<long>(std::chrono::nanoseconds(timeout - seconds).count());
  if (deadline.tv_nsec >= kNanoseconds) {
    deadline.tv_nsec -= kNanoseconds;
    ++deadline.tv_sec;
  }
  for (;;) {
    const bool arrived = sem_clockwait(&arrivals_, CLOCK_MONOTONIC, &deadline) == 0;
    if (!arrived && errno == EINTR) continue;
    if (interrupted_.exchange(false)) return Event::kInterrupt;
    if (!arrived) return Event::kTimeout;
    std::lock_guard<std::mutex> lock(mutex_);
    if (messages_.empty()) continue;
    *message = std::move(messages_.front());
    messages_.pop_front();
    return Event::kMessage;
  }
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
  sem_post(&arrivals_);
  return 0;
}

void Callbacks::interrupt(int) {
  instance_->interrupted_ = true;
  sem_post(&instance_->arrivals_);
}

}  // namespace tv
