#include "process/status.h"

#include <atomic>

namespace atschost {
namespace {

std::atomic<void (*)()> statusWriter{nullptr};

}  // namespace

void setStatusWriter(void (*write)()) { statusWriter = write; }

void writeStatus() {
  if (void (*const write)() = statusWriter) write();
}

}  // namespace atschost
