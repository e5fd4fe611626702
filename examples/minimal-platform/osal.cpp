// OSAL: timers, which run on one thread.
#include "osal.h"

#include <atomic>

#include "process.h"
#include "set.h"

namespace {

using minimal::kFailure;
using minimal::kSuccess;

std::atomic<OSAL_timer_id> lastTimer{0};

}  // namespace

int OSAL_timer_create(const char* /*name*/, int type, OSAL_timer_id* timer) {
  constexpr int kOnce = 2;
  if (timer == nullptr || type != kOnce) return kFailure;
  *timer = ++lastTimer;
  return kSuccess;
}

int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds) {
  if (timer == 0 || timer > lastTimer || handler == nullptr) return kFailure;
  const std::chrono::milliseconds delay(milliseconds);
  const auto job = [handler, arg] { handler(arg, 0); };
  return minimal::workers().timers.post(job, delay, timer) ? kSuccess : kFailure;
}

// This platform has no semaphores.
void OSAL_display_sem_details_(void) { minimal::log().Info("no semaphores"); }
