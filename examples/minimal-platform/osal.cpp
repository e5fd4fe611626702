// OSAL: timers on one thread.
#include "osal.h"

#include <atomic>
#include <mutex>

#include "set.h"
#include "worker.h"

namespace {

using minimal::kFailure;
using minimal::kSuccess;

struct Timers;  // names the worker
std::atomic<OSAL_timer_id> g_last_timer{0};
std::mutex g_enable_mutex;

}  // namespace

int OSAL_timer_create(const char* /*name*/, int type, OSAL_timer_id* timer) {
  constexpr int kOnce = 2;
  if (timer == nullptr || type != kOnce) return kFailure;
  *timer = ++g_last_timer;
  return kSuccess;
}

int OSAL_timer_enable(OSAL_timer_id timer, OSAL_timer_handler handler, void* arg,
                      uint32_t milliseconds) {
  if (timer == 0 || timer > g_last_timer || handler == nullptr) return kFailure;
  minimal::Worker& timers = minimal::processWorker<Timers>();
  const std::lock_guard<std::mutex> lock(g_enable_mutex);  // of two starts one holds
  timers.cancel(timer);
  return timers.post([handler, arg] { handler(arg, 0); }, std::chrono::milliseconds(milliseconds),
                     timer)
             ? kSuccess
             : kFailure;
}

// This set has no semaphores to show.
void OSAL_display_sem_details_(void) { minimal::log().Info("no semaphores"); }
