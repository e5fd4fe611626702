#include "modules/host.h"

#include "atsc_host.h"
#include "modules/call.h"
#include "process/immortal.h"
#include "process/shutdown.h"
#include "process/status.h"

namespace atschost {

Air& hostAir() {
  static Air& air = immortal<Air>();
  return air;
}

Clock& hostClock() {
  static Clock& clock = immortal<Clock>();
  return clock;
}

Receiver& hostReceiver() {
  static Receiver& receiver = []() -> Receiver& {
    static Receiver& made = immortal<Receiver>(stateFolder(), hostAir(), hostClock());
    setStatusWriter([] { made.display(); });
    atShutDown(ShutDownStage::kReceiver, [] { made.shutDown(); });
    return made;
  }();
  return receiver;
}

}  // namespace atschost

void ATSC_host_set_air(const char* folder) {
  atschost::statusOf(__func__, [&] {
    atschost::hostAir().setFolder(folder ? folder : "");
    return true;
  });
}

void ATSC_host_set_dwell(unsigned int milliseconds) {
  atschost::hostAir().setDwell(std::chrono::milliseconds(milliseconds));
}

void ATSC_host_set_fast(int fast) { atschost::hostAir().setFast(fast != 0); }

void ATSC_host_set_clock(uint32_t unixSeconds) {
  const auto set = [&] {
    atschost::hostClock().set(unixSeconds);
    return true;
  };
  atschost::loggedStatusOf(__func__, set, unixSeconds);
}
