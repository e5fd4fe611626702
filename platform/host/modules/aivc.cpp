#include "aivc.h"

#include "receiver/receiver.h"

int AIVC_close_video(uint32_t path) {
  return atschost::logged_status_of(
      __func__,
      [&] {
        if (path != 0) return false;
        atschost::Receiver::instance().close_picture();
        return true;
      },
      path);
}
