#ifndef ATSC_TESTS_SUPPORT_RAW_PEER_H_
#define ATSC_TESTS_SUPPORT_RAW_PEER_H_

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "bus/socket.h"

// Four bytes of a frame of the BUS.
inline std::string word(uint32_t value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// A connection to a server of the BUS that sends arbitrary bytes.
class RawPeer {
 public:
  RawPeer() = default;
  explicit RawPeer(const std::string& name) : socket_(bus::streamSocket(true)) {
    const bus::Address address(bus::socketPath(name));
    if (::connect(socket_.get(), address.get(), address.size()) != 0) socket_.reset();
  }

  bool connected() const { return static_cast<bool>(socket_); }

  // Sends the bytes that the socket takes now. Returns whether these were all.
  bool send(const std::string& bytes) {
    return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(bytes.size());
  }

  void finish() { ::shutdown(socket_.get(), SHUT_WR); }

  // Returns the bytes until the end of the connection; with MSG_DONTWAIT those that are there.
  std::string receive(size_t most = SIZE_MAX, int flags = 0) {
    std::string all;
    char bytes[4096];
    while (all.size() < most) {
      const size_t room = std::min(sizeof bytes, most - all.size());
      const ssize_t got = ::recv(socket_.get(), bytes, room, flags);
      if (got <= 0) break;
      all.append(bytes, static_cast<size_t>(got));
    }
    return all;
  }

 private:
  bus::Fd socket_;
};

#endif  // ATSC_TESTS_SUPPORT_RAW_PEER_H_
