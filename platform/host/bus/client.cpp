#include "bus/client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>

#include "atsc_host.h"
#include "bus/server.h"

namespace bus {
namespace {

thread_local int lastTransact = 0;

// Sends a whole frame. Returns false when the peer closed the connection before it received all of
// it.
bool sendFrame(int socket, const char* frame, size_t size) {
  while (size > 0) {
    const ssize_t sent = ::send(socket, frame, size, MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    frame += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

}  // namespace

Client::Client(const char* name) : name_(name), quiet_(name_ != ATSC_HOST_SERVICE_NAME) {
  Server::instance().add(*this);
}

Client::~Client() {
  Server::instance().remove(*this);
  atschost::MutexLock lock(mutex_);
  closing_ = true;
  if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
  turn_.notifyAll();
  while (callers_ > 0) turn_.wait(lock);
}

int Client::transact(uint32_t code, BUSParam& data, BUSParam* reply, uint32_t flags) {
  const FrameKind kind = reply != nullptr ? FrameKind::kRequest : FrameKind::kRequestNoReply;
  BUSPlatform::Parcel* const answer = reply != nullptr ? &BUSPlatform::of(*reply) : nullptr;
  BUSPlatform::Parcel& request = BUSPlatform::of(data);
  int result = -1;
  try {
    if (const size_t size = request.seal(kind, code, flags); size > 0) {
      atschost::MutexLock lock(mutex_);
      ++callers_;
      while (busy_ && !givenUp()) turn_.wait(lock);
      if (!givenUp()) {
        busy_ = true;
        onServerThread_ = Server::onServerThread();
        lock.unlock();
        try {
          result = exchange(size, request, answer);
        } catch (const std::exception& error) {
          // Out of memory in the middle of a frame: the next caller must not receive the rest of
          // it.
          fail(error.what());
        }
        lock.lock();
        onServerThread_ = false;
        busy_ = false;
      }
      --callers_;
      if (callers_ > 0 || closing_) turn_.notifyAll();
    } else {
      log().Error("BUS %s: a request is too large to be carried", name_.c_str());
    }
  } catch (const std::exception& error) {
    log().Error("BUS %s: a call failed: %s", name_.c_str(), error.what());
  }
  if (result != 0 && answer != nullptr) answer->empty();
  return result;
}

bool Client::givenUp() const {
  return closing_ || (Server::onServerThread() && Server::instance().ending());
}

// Sends the request and receives the reply. For the busy caller.
int Client::exchange(size_t size, BUSPlatform::Parcel& request, BUSPlatform::Parcel* reply) {
  const FrameHeader header = readHeader(request.frame());
  bool fresh = false;
  for (;;) {
    if (!socket_) {
      if (!connect()) return -1;
      fresh = true;
    }
    if (Server::onServerThread() && peer_ == ::getpid()) {
      return fail("the server thread waits for itself");
    }
    if (sendFrame(socket_.get(), request.frame(), size)) return receive(header.code, reply);
    // The peer did not receive the whole request, so it did not run it.
    disconnect();
    if (fresh) return -1;
  }
}

int Client::receive(uint32_t code, BUSPlatform::Parcel* reply) {
  if (input_.size() != kReceiveBuffer) std::vector<char>(kReceiveBuffer).swap(input_);
  size_t have = 0;
  size_t need = kHeaderSize;
  FrameHeader header{};
  while (have < need) {
    if (quiet_) {
      pollfd bytes{socket_.get(), POLLIN, 0};
      ::poll(&bytes, 1, -1);
    }
    const ssize_t got = ::recv(socket_.get(), input_.data() + have, input_.size() - have, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      if (faults_.due("ended")) {
        log().Warn("BUS %s: no reply from process %d: the connection ended", name_.c_str(), peer_);
      }
      disconnect();
      return -1;
    }
    have += static_cast<size_t>(got);
    if (have < kHeaderSize || need > kHeaderSize) continue;
    header = readHeader(input_.data());
    if (header.kind != FrameKind::kReply && header.kind != FrameKind::kFailure) {
      return fail("the reply is not a frame");
    }
    if (header.code != code) return fail("the reply belongs to another request");
    if (header.length > kMaxBody) return fail("the reply is too large");
    need = kHeaderSize + header.length;
    if (need > input_.size()) input_.resize(need);
  }
  if (have > need) return fail("there is more than one reply");
  if (header.kind == FrameKind::kFailure) {
    if (faults_.due("no reply")) {
      log().Error("BUS %s: process %d could not reply", name_.c_str(), peer_);
    }
    return -1;
  }
  BUSPlatform::Parcel unread;
  if (!(reply != nullptr ? *reply : unread).load(input_.data() + kHeaderSize, header.length)) {
    return fail("an item of the reply is malformed");
  }
  return 0;
}

// Logs the reason and ends the connection.
int Client::fail(const char* reason) {
  if (faults_.due(reason)) {
    log().Error("BUS %s: connection to process %d ended: %s", name_.c_str(), peer_, reason);
  }
  disconnect();
  return -1;
}

void Client::disconnect() {
  const atschost::MutexLock lock(mutex_);
  socket_.reset();
}

bool Client::connect() {
  for (;;) {
    bool busy = false;
    Fd socket = openSocket(&busy);
    atschost::MutexLock lock(mutex_);
    if (givenUp()) return false;
    if (socket) {
      const auto peer = peerOf(socket.get());
      if (!peer || peer->uid != ::geteuid()) {
        if (faults_.due("user")) {
          log().Error("BUS %s: the server belongs to another user", name_.c_str());
        }
        return false;
      }
      peer_ = peer->pid;
      socket_ = std::move(socket);
      return true;
    }
    if (!busy) return false;
    turn_.waitUntil(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
  }
}

// Returns a connected, blocking socket, or an empty Fd. Sets `busy` when the server's queue is
// full.
Fd Client::openSocket(bool* busy) {
  if (!validName(name_)) {
    log().Error("BUS %s: not a valid name", name_.c_str());
    return Fd();
  }
  // Connects through a descriptor of the file, so that links are not followed and the checked file
  // is the connected file.
  const std::string path = socketPath(name_);
  const Fd file(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0) {
    log().Debug("BUS %s: nobody serves it", name_.c_str());
    return Fd();
  }
  if (!S_ISSOCK(status.st_mode) || status.st_uid != ::geteuid()) {
    if (faults_.due("path")) {
      log().Error("BUS %s: %s %s", name_.c_str(), path.c_str(), notOurs(status).c_str());
    }
    return Fd();
  }
  Fd socket = streamSocket(false);
  const Address address("/proc/self/fd/" + std::to_string(file.get()));
  if (::connect(socket.get(), address.get(), address.size()) != 0) {
    *busy = errno == EAGAIN;
    if (!*busy) log().Debug("BUS %s: %s", name_.c_str(), std::strerror(errno));
    return Fd();
  }
  const int statusFlags = ::fcntl(socket.get(), F_GETFL);
  if (statusFlags < 0 || ::fcntl(socket.get(), F_SETFL, statusFlags & ~O_NONBLOCK) != 0) {
    return Fd();
  }
  return socket;
}

void Client::endServerThreadCall() {
  const atschost::MutexLock lock(mutex_);
  if (onServerThread_ && socket_) ::shutdown(socket_.get(), SHUT_RDWR);
  turn_.notifyAll();
}

void Client::resetAfterFork() {
  // The threads that held or awaited these do not exist in the child.
  new (&mutex_) atschost::Mutex;
  new (&turn_) atschost::CondVar;
  new (&faults_) Faults;
  callers_ = 0;
  busy_ = closing_ = onServerThread_ = false;
  socket_.reset();
}

}  // namespace bus

struct BUSClientInterface::Impl : bus::Client {
  using Client::Client;
};

BUSClientInterface::BUSClientInterface(const char* name, const char* /*description*/)
    : impl_(std::make_unique<Impl>(name != nullptr ? name : "")) {
  bus::sweepOnce();
}

BUSClientInterface::~BUSClientInterface() = default;

int BUSClientInterface::transact(unsigned int code, BUSParam& data, BUSParam* reply,
                                 unsigned int flags) {
  const int result = impl_->transact(code, data, reply, flags);
  bus::lastTransact = result;
  return result;
}

int ATSC_host_last_transact() { return bus::lastTransact; }
