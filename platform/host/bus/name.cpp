#include "bus/name.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "bus/log.h"

namespace bus {
namespace {

constexpr char kFolder[] = "/tmp";
constexpr char kPrefix[] = ".BUS.";

std::string lockName(const std::string& name) {
  return std::string(1, '\0') + kPrefix + std::to_string(::geteuid()) + "." + name;
}

enum class Holder { kNobody, kPassing, kProcess, kUnknown };

// Finds the holder of a name's lock. kPassing: the state is about to change. Most often the lock is
// bound but has no listener, because a process is about to serve the name or is removing a stale
// file. Sets `who` to the process, of any user, if it is known.
Holder probeLock(const std::string& name, std::optional<ucred>* who) {
  const Fd socket = streamSocket(false);
  const Address address(lockName(name));
  if (::connect(socket.get(), address.get(), address.size()) != 0) {
    // Connecting is refused both without a binding and without a listener. bind() distinguishes
    // them.
    return errno == ECONNREFUSED || errno == EAGAIN ? Holder::kPassing : Holder::kUnknown;
  }
  *who = peerOf(socket.get());
  const bool own = *who && (*who)->uid == ::geteuid() && (*who)->pid > 0;
  return own ? Holder::kProcess : Holder::kUnknown;
}

// Takes the lock of a name. On failure returns an empty Fd and sets `owner` to the live process
// that holds the lock, or to -1.
Fd takeLock(const std::string& name, pid_t* owner) {
  *owner = -1;
  Fd lock = streamSocket(false);
  const Address address(lockName(name));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (::bind(lock.get(), address.get(), address.size()) != 0) {
    if (errno != EADDRINUSE) {
      log().Error("BUS %s: cannot lock the name: %s", name.c_str(), std::strerror(errno));
      return Fd();
    }
    std::optional<ucred> who;
    const Holder holder = probeLock(name, &who);
    if (holder == Holder::kProcess) {
      *owner = who->pid;
      return Fd();
    }
    if (holder == Holder::kUnknown || std::chrono::steady_clock::now() >= deadline) {
      const std::string whose =
          who ? "process " + std::to_string(who->pid) + " of user " + std::to_string(who->uid)
              : "an unknown process";
      log().Error("BUS %s: %s holds the abstract socket @%s", name.c_str(), whose.c_str(),
                  lockName(name).c_str() + 1);
      return Fd();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return lock;
}

// Returns whether a program listens on a socket file. Called under the lock of the name, so only a
// program that does not use the BUS can answer.
bool answers(const std::string& path) {
  const Fd socket = streamSocket(false);
  const Address address(path);
  return ::connect(socket.get(), address.get(), address.size()) == 0 || errno == EAGAIN;
}

// Removes the socket file of a dead process; only root removes a file of another user. The caller
// holds the lock of the name. Returns false and sets `reason` when something else is at the path.
bool removeStale(const std::string& path, std::string* reason) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) {
    *reason = std::strerror(errno);
    return errno == ENOENT;
  }
  const bool ours = status.st_uid == ::geteuid() || ::geteuid() == 0;
  if (!S_ISSOCK(status.st_mode) || !ours) {
    *reason = notOurs(status);
    return false;
  }
  if (answers(path)) {
    *reason = "is in use by another program, of user " + std::to_string(status.st_uid);
    return false;
  }
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    *reason = std::strerror(errno);
    return false;
  }
  return true;
}

void sweep() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(kFolder), ::closedir);
  if (!folder) return;
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string file = entry->d_name;
    if (file.rfind(kPrefix, 0) == 0) names.push_back(file.substr(std::strlen(kPrefix)));
  }
  for (const std::string& name : names) {
    struct stat status;
    const std::string path = socketPath(name);
    if (!validName(name) || ::lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode) ||
        status.st_uid != ::geteuid()) {
      continue;
    }
    pid_t owner = 0;
    std::string reason;
    if (const Fd lock = takeLock(name, &owner); lock && !removeStale(path, &reason)) {
      log().Debug("BUS %s: %s %s", name.c_str(), path.c_str(), reason.c_str());
    }
  }
}

}  // namespace

std::unique_ptr<OwnedName> OwnedName::acquire(const std::string& name, pid_t* owner) {
  *owner = -1;
  if (!validName(name)) {
    log().Error("BUS %s: not a valid name", name.c_str());
    return nullptr;
  }
  Fd lock = takeLock(name, owner);
  if (!lock) return nullptr;
  std::unique_ptr<OwnedName> owned(new OwnedName(name, std::move(lock)));
  return owned->listen() ? std::move(owned) : nullptr;
}

bool OwnedName::listen() {
  const std::string path = socketPath(name_);
  std::string reason;
  if (!removeStale(path, &reason)) {
    log().Error("BUS %s: %s %s", name_.c_str(), path.c_str(), reason.c_str());
    return false;
  }
  listener_ = streamSocket(false);
  const Address address(path);
  struct stat status;
  // The mode of the unbound socket becomes the mode of the file.
  if (::fchmod(listener_.get(), S_IRUSR | S_IWUSR) != 0 ||
      ::bind(listener_.get(), address.get(), address.size()) != 0) {
    log().Error("BUS %s: cannot make %s: %s", name_.c_str(), path.c_str(), std::strerror(errno));
    return false;
  }
  if (::lstat(path.c_str(), &status) == 0) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }
  if (::listen(listener_.get(), SOMAXCONN) != 0 || ::listen(lock_.get(), SOMAXCONN) != 0) {
    log().Error("BUS %s: cannot listen: %s", name_.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

OwnedName::~OwnedName() {
  struct stat status;
  const std::string path = socketPath(name_);
  if (listener_ && ::lstat(path.c_str(), &status) == 0 && status.st_dev == device_ &&
      status.st_ino == inode_) {
    ::unlink(path.c_str());
  }
}

void OwnedName::abandon() {
  lock_.reset();
  listener_.reset();
}

pid_t findOwner(const std::string& name) {
  std::optional<ucred> who;
  return validName(name) && probeLock(name, &who) == Holder::kProcess ? who->pid : 0;
}

void sweepOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    try {
      sweep();
    } catch (const std::exception& error) {
      log().Error("BUS: cannot remove stale sockets: %s", error.what());
    }
  });
}

}  // namespace bus
