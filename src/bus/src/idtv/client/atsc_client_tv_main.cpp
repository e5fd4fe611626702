#include <atsc/atsc_service.h>
#include <pthread.h>

#include "atsc_immortal.h"
#include "atsc_log.h"
#include "idtv/client/atsc_client_tv.h"

ATSC_LOGGER("tv/client/main")

// Never destroyed: the callback threads send until the process has ended.
atsc::Immortal<ATSCBUS::ATSCClientTV> g_atsc_client_tv;
pthread_mutex_t g_atsc_tv_client_mutex = PTHREAD_MUTEX_INITIALIZER;

int ATSC_TransmitTVClientJSONCommand(const char* command, char** result) {
  ATSC_ENTER();
  pthread_mutex_lock(&g_atsc_tv_client_mutex);
  const int code = g_atsc_client_tv->SendJSONCommand(command, result);
  pthread_mutex_unlock(&g_atsc_tv_client_mutex);
  ATSC_LEAVE();
  return code;
}
