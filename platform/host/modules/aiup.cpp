#include "aiup.h"

#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::loggedStatusOf;

int AIUP_store_all() {
  return loggedStatusOf(__func__, [] {
    hostReceiver().settings().store();
    return true;
  });
}

int AIUP_sync() {
  return loggedStatusOf(__func__, [] {
    const bool regions = hostReceiver().ratingRegions().store();
    const bool parental = hostReceiver().parental().sync();
    return hostReceiver().settings().sync() && regions && parental;
  });
}
