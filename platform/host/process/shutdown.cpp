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

// Trivially destroyed, because it is used until the end of the process.
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
  // Registered each time, because handlers and destructors run in reverse order of registration.
  std::atexit(shutDown);
}

}  // namespace atschost
