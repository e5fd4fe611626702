#include "aiup.h"

#include "receiver/receiver.h"

using atschost::logged_status_of;
using atschost::Receiver;

int AIUP_store_all() {
  return logged_status_of(__func__, [] {
    Receiver::instance().store_settings();
    return true;
  });
}

int AIUP_sync() {
  return logged_status_of(__func__, [] { return Receiver::instance().sync_settings(); });
}
