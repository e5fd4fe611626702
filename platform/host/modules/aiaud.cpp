#include "aiaud.h"

#include "receiver/receiver.h"

int AIAUD_set_dual_mode(uint32_t mode) {
  return atschost::loggedStatusOf(
      __func__, [&] { return atschost::Receiver::instance().setDualMode(mode); }, mode);
}
