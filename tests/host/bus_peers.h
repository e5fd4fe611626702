// Peers of the BUS for the tests: a server with all kinds of transactions, a client, and a peer
// that violates the protocol.
#ifndef ATSC_TESTS_HOST_BUS_PEERS_H_
#define ATSC_TESTS_HOST_BUS_PEERS_H_

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <string>

#include "bus_lifetime.h"
#include "role.h"

namespace bus_peers {

enum Code : unsigned {
  kEcho = 1,  // the text, then its length
  kBlock,     // sends 'B' to the test, waits for a byte, replies 7
  kDie,       // sends 'D' to the test and is killed
  kQuit,      // makes main() return, then like kBlock
  kLarge,     // a text of the requested size
  kNothing,   // an empty reply
};

inline std::promise<void> quit;

class Echo : public BUSServerInterface {
 public:
  explicit Echo(const std::string& name) : BUSServerInterface(name.c_str(), "echo") {
    BUS_server_complete(this);
  }
  ~Echo() override { BUS_server_ends(this); }

  int onTransact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int) override {
    const char* const text = data.readCString();
    const int32_t number = data.readInt32();
    switch (code) {
      case kEcho:
        if (reply == nullptr) break;
        reply->writeCString(text);
        reply->writeInt32(text != nullptr ? static_cast<int32_t>(std::strlen(text)) : -1);
        break;
      case kQuit:
        quit.set_value();
        [[fallthrough]];
      case kBlock:
        tell('B');
        listen();
        reply->writeInt32(7);
        break;
      case kDie:
        tell('D');
        ::raise(SIGKILL);
        break;
      case kLarge:
        reply->writeCString(std::string(static_cast<size_t>(number), 'x').c_str());
        break;
      default:
        break;
    }
    return 0;
  }
};

inline std::string uniqueName(const char* what) {
  static int count = 0;
  return "test." + std::to_string(::getpid()) + "." + what + std::to_string(++count);
}

inline std::string pathOf(const std::string& name) { return "/tmp/.BUS." + name; }

// Returns a socket that is bound to a path.
inline int bound(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << path;
  return fd;
}

inline bool exists(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

class Caller : public BUSClientInterface {
 public:
  explicit Caller(const std::string& name) : BUSClientInterface(name.c_str(), "caller") {}

  // Returns the echoed text; when the call fails, "-" and any text of the reply.
  std::string echo(const std::string& text) {
    BUSParam data, reply;
    data.writeCString(text.c_str());
    const int result = transact(kEcho, data, &reply, 0);
    const char* const echoed = reply.readCString();
    const std::string answer = echoed != nullptr ? echoed : "";
    const bool whole = reply.readInt32() == static_cast<int32_t>(text.size());
    return result == 0 && whole ? answer : "-" + answer;
  }

  int call(Code code, int32_t* number = nullptr) {
    BUSParam data, reply;
    const int result = transact(code, data, &reply, 0);
    if (number != nullptr) *number = reply.readInt32();
    return result;
  }
};

// A connection that sends arbitrary bytes.
class RawPeer {
 public:
  explicit RawPeer(const std::string& path)
      : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawPeer() { ::close(fd_); }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  bool connected() const { return connected_; }
  bool send(const std::string& bytes, int flags = 0) {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags) ==
           static_cast<ssize_t>(bytes.size());
  }
  void finish() { ::shutdown(fd_, SHUT_WR); }
  void receive(size_t size) {
    std::string bytes(size, '\0');
    ::recv(fd_, bytes.data(), size, MSG_WAITALL);
  }
  // Returns all bytes until the peer ends the connection.
  std::string receiveAll() {
    std::string all;
    char bytes[4096];
    for (ssize_t got; (got = ::recv(fd_, bytes, sizeof bytes, 0)) > 0;) {
      all.append(bytes, static_cast<size_t>(got));
    }
    return all;
  }

 private:
  int fd_;
  bool connected_;
};

inline std::string word(uint32_t value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

inline std::string request(const std::string& items, unsigned code = kEcho) {
  return "BUSq" + word(static_cast<uint32_t>(items.size())) + word(code) + word(0) + items;
}

}  // namespace bus_peers

#endif  // ATSC_TESTS_HOST_BUS_PEERS_H_
