#include "aife.h"

#include "receiver/receiver.h"

int AIFE_get_tuning_details(uint32_t tuner, uint32_t path, AIFE_tuning_details* details) {
  return atschost::status_of(__func__, [&] {
    if (tuner != 0 || path != AIFE_MAIN_PATH || !details) return false;
    *details = atschost::Receiver::instance().tuning();
    return true;
  });
}
