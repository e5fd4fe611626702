#include "aiaud.h"

#include "receiver/receiver.h"

int AIAUD_set_dual_mode(uint32_t mode) {
  return atschost::logged_status_of(
      __func__, [&] { return atschost::Receiver::instance().set_dual_mode(mode); }, mode);
}
