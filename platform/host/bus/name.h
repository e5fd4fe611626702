// Ownership of BUS names.
//
// A name belongs to the process that has bound the abstract socket ".BUS.<user>.<name>" and listens
// on it: the kernel gives it to one process only and takes it back when that process dies. The
// socket file of a name is made and removed only by the process that has this lock.
#ifndef ATSC_HOST_BUS_NAME_H_
#define ATSC_HOST_BUS_NAME_H_

#include <sys/types.h>

#include <memory>
#include <string>

#include "bus/socket.h"

namespace bus {

// A name that this process owns, with its listening socket.
class OwnedName {
 public:
  // Takes a name; removes what a dead process has left. On failure returns null with `owner` set to
  // the live process that has the name, or -1 (the reason is in the log).
  static std::unique_ptr<OwnedName> acquire(const std::string& name, pid_t* owner);

  // Gives the name back and removes the socket file.
  ~OwnedName();

  OwnedName(const OwnedName&) = delete;
  OwnedName& operator=(const OwnedName&) = delete;

  const std::string& name() const { return name_; }
  int listener() const { return listener_.get(); }
  // Other processes connect to the lock to learn who has it.
  int lock() const { return lock_.get(); }

  // Closes a forked child's copies; name and file stay with the parent.
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

// The live process that owns a name, 0 when there is none.
pid_t findOwner(const std::string& name);

// Removes the socket files that dead processes of this user have left; the first call in a process
// only.
void sweepOnce();

}  // namespace bus

#endif  // ATSC_HOST_BUS_NAME_H_
