#include "aivc.h"

#include "receiver/receiver.h"

int AIVC_close_video(uint32_t path) {
  return atschost::loggedStatusOf(
      __func__,
      [&] {
        if (path != 0) return false;
        atschost::Receiver::instance().closePicture();
        return true;
      },
      path);
}
