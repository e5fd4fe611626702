#include "rmgr.h"

#include "receiver/receiver.h"

int RMGRReload() {
  return atschost::logged_status_of(
      __func__, [] { return atschost::Receiver::instance().reload_services(); });
}
