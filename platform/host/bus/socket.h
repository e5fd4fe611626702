// Sockets of the BUS.
#ifndef ATSC_HOST_BUS_SOCKET_H_
#define ATSC_HOST_BUS_SOCKET_H_

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

namespace bus {

// Owns a file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

// A Unix socket address: a path, or, with a first byte of 0, a name in the abstract namespace.
class Address {
 public:
  explicit Address(const std::string& text);
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  socklen_t size() const { return size_; }

 private:
  sockaddr_un address_{};
  socklen_t size_;
};

// Returns whether `name` can be a BUS name: not empty, one path component, short enough for an
// address.
bool validName(const std::string& name);

// Returns the path of the socket file of a name.
std::string socketPath(const std::string& name);

// Describes, for the log, a file at a socket's path that is not a socket of this user.
std::string notOurs(const struct stat& status);

// Returns a close-on-exec stream socket. On failure returns an empty Fd and sets errno.
Fd streamSocket(bool blocking);

// Returns the process and user of the peer. For the peer that listened, these are the ones at the
// time of listen().
std::optional<ucred> peerOf(int socket);

}  // namespace bus

#endif  // ATSC_HOST_BUS_SOCKET_H_
