#include "aist.h"

#include <ctime>

int AIST_get_cur_time_secs(uint32_t* seconds) {
  if (!seconds) return -1;
  *seconds = static_cast<uint32_t>(std::time(nullptr));
  return 0;
}
