#include "common/process.h"

#include <malloc.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>

namespace apps {
namespace {

// Posted on SIGTERM and SIGINT. The library starts threads before main() that do not block these
// signals, so that any thread may run the handler.
sem_t gStop;

void requestStop(int) { sem_post(&gStop); }

}  // namespace

void prepareProcess() {
  umask(S_IRWXG | S_IRWXO);
  sem_init(&gStop, 0, 0);
  struct sigaction action = {};
  action.sa_handler = requestStop;
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  // The threads are seldom busy at once, and an arena for each would take memory.
#ifdef M_ARENA_MAX
  mallopt(M_ARENA_MAX, 1);
#endif
}

void waitForStop() {
  while (sem_wait(&gStop) != 0 && errno == EINTR) {
  }
}

}  // namespace apps
