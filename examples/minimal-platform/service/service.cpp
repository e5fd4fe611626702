// The service process: starts the library on the minimal platform and serves until SIGTERM.
#include <atsc/atsc_service.h>
#include <minimal_platform.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace {

// A handler and not sigwait(): the library starts threads before main() that do not block signals.
sem_t stopSemaphore;

void requestStop(int) { sem_post(&stopSemaphore); }

}  // namespace

int main() {
  umask(S_IRWXG | S_IRWXO);  // no access for other users
  sem_init(&stopSemaphore, 0, 0);
  struct sigaction action = {};
  action.sa_handler = requestStop;
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);

  if (MINIMAL_claim() != 0) return 1;  // the reason is logged
  ATSCCustomizedParameter customized = {};
  ATSC_Service_init(&customized);
  ATSC_Service_db_init();
  // ATSC_Service_db_init() only compares the numbers of channels. After a power cut, other channels
  // of the same number may be listed.
  const int terrestrialChanged = ATSC_Service_db_UpdateChannel(ATSC_INPUT_TERRESTRIAL);
  const int cableChanged = ATSC_Service_db_UpdateChannel(ATSC_INPUT_CABLE);
  if (terrestrialChanged != 0 || cableChanged != 0) ATSC_Service_event_cb_Ex();
  if (MINIMAL_serve() != 0) return 1;
  puts("ready");
  fflush(stdout);

  while (sem_wait(&stopSemaphore) != 0 && errno == EINTR) {
  }
  return 0;
}
