#include "aipt.h"

#include "modules/call.h"
#include "modules/host.h"

int AIPT_get_index_status(int* status, int path) {
  return atschost::loggedStatusOf(
      __func__,
      [&] {
        if (!status || path != 0) return false;
        *status = atschost::hostReceiver().player().isPlaying() ? 1 : 0;
        return true;
      },
      status, path);
}
