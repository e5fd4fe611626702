#include <atsc/atsc_service.h>
#include <unistd.h>

#include <exception>
#include <new>

#include "atsc_log.h"
#include "idtv/server/atsc_server_tv.h"

ATSC_LOGGER("tv/srv/main")

namespace {

// Exists while a TV server runs.
constexpr const char* kRunningFile = "/tmp/.BUS.atsc.qel.tv.srv";

}  // namespace

ATSCBUS::ATSCTVServerBackend g_tv_server_backend_default;

// Null until registration; never deleted, the server runs until the process ends.
ATSCBUS::ATSCServerTV* g_atsc_server_tv_ptr = nullptr;

int ATSC_RegisterTVServerBackend(ATSCBUS::ATSCTVServerBackend* backend) {
  ATSC_ENTER();
  if (backend == nullptr) {
    ATSC_LOG(Error, "TV-server-backend is NULL");
    return -1;
  }
  if (access(kRunningFile, F_OK) == 0) {
    ATSC_LOG(Error, "\033[1;37;41mTV Servier is running already)\033[0m\n");
    return -1;
  }
  try {
    g_atsc_server_tv_ptr = new (std::nothrow) ATSCBUS::ATSCServerTV(backend);
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "the TV server cannot be built: %s", e.what());
    g_atsc_server_tv_ptr = nullptr;
  }
  ATSC_LEAVE();
  return g_atsc_server_tv_ptr == nullptr ? -1 : 0;
}
