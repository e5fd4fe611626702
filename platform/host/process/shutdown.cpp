#include "process/shutdown.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <utility>

namespace atschost {
namespace {

struct Registration {
  std::atomic<void (*)()> end{nullptr};
  std::atomic<pid_t> process{0};
};

// Trivially destroyed: used until the very end.
std::array<Registration, 3> registrations;

void shutDown() {
  for (Registration& stage : registrations) {
    void (*const end)() = stage.end.exchange(nullptr);
    if (end && stage.process == getpid()) end();
  }
}

}  // namespace

void atShutDown(ShutDownStage stage, void (*end)()) {
  Registration& registration = registrations[static_cast<size_t>(stage)];
  registration.process = getpid();
  registration.end = end;
  // Each time: handlers and destructors run in the reverse of their order.
  std::atexit(shutDown);
}

}  // namespace atschost
