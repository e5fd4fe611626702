#include "idtv/server/atsc_server_tv.h"

#include <bus_lifetime.h>

#include <cstdint>
#include <cstdio>
#include <exception>

#include "atsc_json_transport.h"
#include "atsc_log.h"

ATSC_LOGGER("tv/srv")

namespace ATSCBUS {

namespace {

ATSCTVServerBackend* orDefault(ATSCTVServerBackend* backend) {
  return backend != nullptr ? backend : &g_tv_server_backend_default;
}

}  // namespace

ATSCTVServerBackend::~ATSCTVServerBackend() = default;

int ATSCTVServerBackend::jsonCommand(const char* command, char** /*result*/) {
  ATSC_ENTER();
  printf("[jsonCommand]command %s", command != nullptr ? command : "");
  printf("\n\033[1;5;33m[ATSC] This function '%s::%s()' isn't implemented yet !!!\033[0m\n",
         "ATSCTVServerBackend", "jsonCommand");
  fflush(stdout);
  ATSC_LEAVE();
  return -1;
}

ATSCServerTV::ATSCServerTV(ATSCTVServerBackend* backend)
    : BUSServerInterface(kTVServerName, kTVServerName), backend_(orDefault(backend)) {
  ATSC_ENTER();
  if (BUS_server_complete != nullptr) BUS_server_complete(this);
  ATSC_LEAVE();
}

ATSCServerTV::~ATSCServerTV() {
  ATSC_ENTER();
  if (BUS_server_ends != nullptr) BUS_server_ends(this);
  backend_ = &g_tv_server_backend_default;
  ATSC_LEAVE();
}

void ATSCServerTV::RegisterBackend(ATSCTVServerBackend* backend) {
  ATSC_ENTER();
  ATSC_LOG(Debug, "${%s}='0x%08x'", "backend",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(backend)));
  backend_ = orDefault(backend);
  ATSC_LEAVE();
}

int ATSCServerTV::onTransact(unsigned int code, BUSParam& data, BUSParam* reply,
                             unsigned int /*flags*/) {
  static const JSONServerTexts texts{"tv/srv", "ATSCBUS_TV_CMD_ID_JSON_COMMAND", tv_thread_tid};
  return transport::onTransact(texts, code, data, reply,
                               [this](const char* request, char** result) {
                                 // The backend is code of the TV application: its exceptions must
                                 // not end the server thread.
                                 try {
                                   return backend_.load()->jsonCommand(request, result);
                                 } catch (const std::exception& e) {
                                   ATSC_LOG(Error, "the backend threw: %s", e.what());
                                 } catch (...) {
                                   ATSC_LOG(Error, "the backend threw");
                                 }
                                 return -1;
                               });
}

}  // namespace ATSCBUS
