#include "aivc.h"

#include "modules/call.h"
#include "modules/host.h"

int AIVC_close_video(uint32_t path) {
  return atschost::loggedStatusOf(
      __func__,
      [&] {
        if (path != 0) return false;
        atschost::hostReceiver().player().closePicture();
        return true;
      },
      path);
}
