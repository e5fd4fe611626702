// Ownership of BUS names.
//
// A process owns a name while it has bound the abstract socket ".BUS.<user>.<name>" and listens on
// it. This socket is the lock of the name: the kernel gives it to one process at a time and frees
// it when that process dies. Only the holder of the lock creates or removes the socket file of the
// name.
#ifndef ATSC_HOST_BUS_NAME_H_
#define ATSC_HOST_BUS_NAME_H_

#include <sys/types.h>

#include <memory>
#include <string>

#include "bus/socket.h"

namespace bus {

// A name that this process owns, and its listening socket.
class OwnedName {
 public:
  // Takes a name, and removes the socket file that a dead process has left. On failure returns null
  // and sets `owner` to the live process that has the name, or to -1 after an error, which is
  // logged.
  static std::unique_ptr<OwnedName> acquire(const std::string& name, pid_t* owner);

  // Releases the name and removes the socket file.
  ~OwnedName();

  OwnedName(const OwnedName&) = delete;
  OwnedName& operator=(const OwnedName&) = delete;

  const std::string& name() const { return name_; }
  int listener() const { return listener_.get(); }
  // Returns the socket of the lock. Other processes connect to it to find the owner.
  int lock() const { return lock_.get(); }

  // Called in a forked child: closes its copies of the sockets. The parent keeps the name and the
  // file.
  void abandon();

 private:
  OwnedName(std::string name, Fd lock) : name_(std::move(name)), lock_(std::move(lock)) {}
  bool listen();

  const std::string name_;
  Fd lock_;
  Fd listener_;
  dev_t device_ = 0;  // of the socket file
  ino_t inode_ = 0;
};

// Returns the live process that owns a name, 0 when there is none.
pid_t findOwner(const std::string& name);

// Removes the socket files that dead processes of this user have left. Only the first call in a
// process has an effect.
void sweepOnce();

}  // namespace bus

#endif  // ATSC_HOST_BUS_NAME_H_
