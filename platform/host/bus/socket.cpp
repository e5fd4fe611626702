#include "bus/socket.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace bus {

Address::Address(const std::string& text) {
  address_.sun_family = AF_UNIX;
  const size_t size = std::min(text.size(), sizeof address_.sun_path - 1);
  std::memcpy(address_.sun_path, text.data(), size);
  // The NUL is part of a path, but not of an abstract name.
  const size_t end = text.empty() || text[0] == '\0' ? size : size + 1;
  size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + end);
}

bool validName(const std::string& name) {
  constexpr size_t kLongest = 80;  // leaves space for the prefix in an address
  return !name.empty() && name.size() <= kLongest && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

std::string socketPath(const std::string& name) { return "/tmp/.BUS." + name; }

std::string notOurs(const struct stat& status) {
  const char* const kind = S_ISSOCK(status.st_mode)   ? "socket"
                           : S_ISLNK(status.st_mode)  ? "symbolic link"
                           : S_ISDIR(status.st_mode)  ? "folder"
                           : S_ISFIFO(status.st_mode) ? "FIFO"
                                                      : "file";
  return std::string("is not a socket of this user: a ") + kind + " of user " +
         std::to_string(status.st_uid) + " is in the way";
}

Fd streamSocket(bool blocking) {
  return Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (blocking ? 0 : SOCK_NONBLOCK), 0));
}

std::optional<ucred> peerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer;
}

}  // namespace bus
