#include "rmgr.h"

#include "receiver/receiver.h"

int RMGRReload() {
  return atschost::loggedStatusOf(__func__,
                                  [] { return atschost::Receiver::instance().reloadServices(); });
}
