#include "aiup.h"

#include "receiver/receiver.h"

using atschost::loggedStatusOf;
using atschost::Receiver;

int AIUP_store_all() {
  return loggedStatusOf(__func__, [] {
    Receiver::instance().storeSettings();
    return true;
  });
}

int AIUP_sync() {
  return loggedStatusOf(__func__, [] {
    Receiver& receiver = Receiver::instance();
    const bool regions = receiver.ratingRegions().store();
    const bool parental = receiver.parental().sync();
    return receiver.syncSettings() && regions && parental;
  });
}
