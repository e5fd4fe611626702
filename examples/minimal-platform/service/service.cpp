// The service process of a set: starts the library on the set's platform and serves until SIGTERM.
#include <atsc/atsc_service.h>
#include <minimal_platform.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace {

// The library's threads are older than main() and do not block signals: any of them may run the
// handler.
sem_t stopSemaphore;

void requestStop(int) { sem_post(&stopSemaphore); }

}  // namespace

int main() {
  umask(S_IRWXG | S_IRWXO);  // what is made here is nobody else's
  sem_init(&stopSemaphore, 0, 0);
  struct sigaction action = {};
  action.sa_handler = requestStop;
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);

  if (MINIMAL_claim() != 0) return 1;  // the log says why
  ATSCCustomizedParameter customized = {};
  ATSC_Service_init(&customized);
  ATSC_Service_db_init();
  // The check above compares numbers of channels: after a power cut they may be others.
  const int terrestrialChanged = ATSC_Service_db_UpdateChannel(2);
  const int cableChanged = ATSC_Service_db_UpdateChannel(3);
  if (terrestrialChanged != 0 || cableChanged != 0) ATSC_Service_event_cb_Ex();
  if (MINIMAL_serve() != 0) return 1;
  puts("ready");
  fflush(stdout);

  while (sem_wait(&stopSemaphore) != 0 && errno == EINTR) {
  }
  return 0;
}
