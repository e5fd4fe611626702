#include "process/memory.h"

#include <malloc.h>

namespace atschost {

void giveBackMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace atschost
