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
  return logged_status_of(__func__, [] {
    Receiver& receiver = Receiver::instance();
    const bool regions = receiver.rating_regions().store();
    const bool parental = receiver.parental().sync();
    return receiver.sync_settings() && regions && parental;
  });
}
