#include "aiaud.h"

#include "modules/call.h"
#include "modules/host.h"

int AIAUD_set_dual_mode(uint32_t mode) {
  return atschost::loggedStatusOf(
      __func__, [&] { return atschost::hostReceiver().player().setDualMode(mode); }, mode);
}
