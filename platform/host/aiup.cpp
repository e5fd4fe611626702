#include "aiup.h"

#include "receiver/receiver.h"

using atschost::Receiver;
using atschost::status_of;

int AIUP_store_all() {
  return status_of(__func__, [] {
    Receiver::instance().store_settings();
    return true;
  });
}

int AIUP_sync() {
  return status_of(__func__, [] { return Receiver::instance().sync_settings(); });
}
