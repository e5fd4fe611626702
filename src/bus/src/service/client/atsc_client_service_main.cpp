#include <atsc/atsc_service.h>
#include <pthread.h>

#include "atsc_log.h"
#include "service/client/atsc_client_service.h"

ATSC_LOGGER("service/client/main")

ATSCBUS::ATSCClientService g_atsc_client_service;
pthread_mutex_t g_atsc_service_client_mutex = PTHREAD_MUTEX_INITIALIZER;

int ATSC_TransmitServiceClientJSONCommand(const char* command, char** result) {
  ATSC_ENTER();
  pthread_mutex_lock(&g_atsc_service_client_mutex);
  const int code = g_atsc_client_service.SendJSONCommand(command, result);
  pthread_mutex_unlock(&g_atsc_service_client_mutex);
  ATSC_LEAVE();
  return code;
}
