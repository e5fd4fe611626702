#include "common/service.h"

#include <atsc/atsc_service.h>
#include <atsc_host.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <memory>

namespace apps {
namespace {

constexpr const char* kTvName = "atsc.qel.tv.srv";
constexpr const char* kTvSocket = "/tmp/.BUS.atsc.qel.tv.srv";
constexpr time_t kSurelyLeft = 2;  // seconds; longer than a process takes to hold a new socket

// A killed TV application leaves its socket, and while that is there nobody can register. Nobody
// holds the name.
void removeLeftSocket() {
  struct stat status;
  if (lstat(kTvSocket, &status) == 0 && S_ISSOCK(status.st_mode) && status.st_uid == geteuid() &&
      time(nullptr) - status.st_ctim.tv_sec > kSurelyLeft) {
    unlink(kTvSocket);
  }
}

}  // namespace

Json::Value command(const char* commandClass, const char* name) {
  Json::Value value;
  value["class"] = commandClass;
  value["command"] = name;
  return value;
}

int servicePid() { return ATSC_host_find(ATSC_HOST_SERVICE_NAME); }

std::optional<Reply> transmit(const std::string& command) {
  char* raw = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(command.c_str(), &raw);
  const std::unique_ptr<char, void (*)(void*)> text(raw, std::free);
  if (ATSC_host_last_transact() != 0) return std::nullopt;
  return Reply{result, text ? std::optional<std::string>(text.get()) : std::nullopt};
}

int registerTv(ATSCBUS::ATSCTVServerBackend* backend) {
  const auto other = [](int owner) { return owner > 0 ? owner : -1; };
  const int owner = ATSC_host_find(kTvName);
  if (owner != 0) return other(owner);
  removeLeftSocket();
  // Two processes that start at the same time both get here; only one of them holds the name.
  const bool done = ATSC_RegisterTVServerBackend(backend) == 0;
  const int holder = ATSC_host_find(kTvName);
  return done && holder == getpid() ? 0 : other(holder);
}

}  // namespace apps
