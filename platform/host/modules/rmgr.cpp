#include "rmgr.h"

#include "modules/call.h"
#include "modules/host.h"

int RMGRReload() {
  return atschost::loggedStatusOf(__func__,
                                  [] { return atschost::hostReceiver().serviceEditor().reload(); });
}
