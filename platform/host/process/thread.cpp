#include "process/thread.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <utility>

#include "process/log.h"

namespace atschost {
namespace {

// Blocks all signals of the calling thread. A thread that is started meanwhile inherits this from
// its first instruction.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

void run(const char* name, const std::function<void()>& body) {
  pthread_setname_np(pthread_self(), name);
  try {
    body();
  } catch (const std::exception& e) {
    log().Error("thread \"%s\" ended: %s", name, e.what());
  } catch (...) {
    log().Error("thread \"%s\" ended", name);
  }
}

}  // namespace

Thread::~Thread() {
  askToEnd();
  join();
}

void Thread::start(const char* name, std::function<void()> body) {
  if (ending_ || thread_.joinable()) return;
  std::promise<void> end;
  end_ = end.get_future();
  const SignalsBlocked blocked;
  thread_ = std::thread([name, body = std::move(body), end = std::move(end)]() mutable {
    run(name, body);
    end.set_value();
  });
}

bool Thread::join(std::optional<std::chrono::milliseconds> patience) {
  if (!thread_.joinable()) return true;
  if (isCurrent() || (patience && end_.wait_for(*patience) != std::future_status::ready)) {
    thread_.detach();
    return false;
  }
  thread_.join();
  return true;
}

bool Thread::hasEnded() const {
  return end_.valid() && end_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace atschost
