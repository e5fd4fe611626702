#include "aicn.h"

#include "receiver/receiver.h"

using atschost::Receiver;
using atschost::status_of;

int AICN_get_current(AISRV_service_info* record) {
  return status_of(__func__, [&] {
    if (!record) return false;
    const auto service = Receiver::instance().current();
    if (service) atschost::copy_record(*service, *record);
    return service.has_value();
  });
}

int AICN_get_curr_input_source() {
  int source = AI_INPUT_TERRESTRIAL;
  status_of(__func__, [&] {
    source = static_cast<int>(Receiver::instance().current_source());
    return true;
  });
  return source;
}

int AICN_get_chan_state() {
  bool playing = false;
  status_of(__func__, [&] {
    playing = Receiver::instance().is_playing();
    return true;
  });
  return playing ? 1 : 0;
}

int AICN_set_skip_play_srv(int skip) {
  return status_of(__func__, [&] {
    Receiver::instance().set_skip_play(skip != 0);
    return true;
  });
}
