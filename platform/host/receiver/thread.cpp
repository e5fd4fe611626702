#include "receiver/thread.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <utility>

#include "receiver/log.h"

namespace atschost {
namespace {

// Blocks all signals of the calling thread; a thread started meanwhile inherits that from its first
// instruction on.
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

}  // namespace

std::thread startThread(const char* name, std::function<void()> body) {
  const SignalsBlocked blocked;
  return std::thread([name, body = std::move(body)] {
    pthread_setname_np(pthread_self(), name);
    try {
      body();
    } catch (const std::exception& e) {
      log().Error("thread \"%s\" ended: %s", name, e.what());
    } catch (...) {
      log().Error("thread \"%s\" ended", name);
    }
  });
}

}  // namespace atschost
