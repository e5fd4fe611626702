#include "bus/server.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <iterator>

#include "atsc_host.h"
#include "bus/client.h"
#include "bus/log.h"
#include "bus_lifetime.h"
#include "process/shutdown.h"

namespace bus {
namespace {

constexpr uint64_t kWakeId = 0;
constexpr std::chrono::milliseconds kAcceptPause{100};
// Limits of connections: one process cannot take all connections, and all connections together
// cannot take all descriptors.
constexpr size_t kMaxConnections = 768;
constexpr size_t kPeersAtLeast = 3;
// Limit of buffered bytes. Above it the connection with the largest buffers is ended.
constexpr size_t kMaxBuffered = 128 * 1024 * 1024;

thread_local bool isServerThread = false;

// Reserves a quarter of the process's descriptors for other uses.
size_t maxConnections() {
  rlimit descriptors;
  if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0) return kMaxConnections;
  return static_cast<size_t>(std::min<rlim_t>(kMaxConnections, descriptors.rlim_cur / 4 * 3));
}

}  // namespace

Server*& Server::current() {
  static Server* server = [] {
    ::pthread_atfork(lockBeforeFork, unlockAfterFork, resetAfterFork);
    return new Server;
  }();
  return server;
}

Server& Server::instance() { return *current(); }

bool Server::onServerThread() { return isServerThread; }

void Server::lockBeforeFork() { current()->mutex_.lock(); }

void Server::unlockAfterFork() { current()->mutex_.unlock(); }

// Runs in a forked child, with the mutex held by lockBeforeFork(). The child shares descriptors
// with the parent but has neither its server thread nor its names, so it gets a new server.
void Server::resetAfterFork() {
  Server* const parent = current();
  parent->forked_ = true;
  parent->ending_ = true;
  for (const auto& endpoint : parent->endpoints_) endpoint->owned->abandon();
  for (auto& connection : parent->connections_) connection.second.socket.reset();
  parent->epoll_.reset();
  parent->wake_.reset();
  Server* const server = new Server;
  server->parent_ = parent;
  server->clients_ = parent->clients_;
  for (Client* client : server->clients_) client->resetAfterFork();
  current() = server;
  isServerThread = false;
  parent->mutex_.unlock();
}

void Server::begin(ServedObject& object) {
  const auto sameName = [&](const ServedObject* other) { return other->name == object.name; };
  {
    const MutexLock lock(mutex_);
    if (ending_) return;
    if (std::any_of(objects_.begin(), objects_.end(), sameName)) {
      log().Error("BUS %s: this process serves the name already", object.name.c_str());
      return;
    }
    objects_.push_back(&object);
    if (Endpoint* endpoint = findEndpoint(object.name)) return attach(*endpoint);
  }
  if (object.name == ATSC_HOST_SERVICE_NAME) return;
  pid_t owner = -1;
  auto owned = OwnedName::acquire(object.name, &owner);
  if (owned && own(std::move(owned), true)) return;
  if (owner > 0) {
    log().Error("BUS %s: process %d serves the name already", object.name.c_str(), owner);
  }
  const MutexLock lock(mutex_);
  objects_.erase(std::remove(objects_.begin(), objects_.end(), &object), objects_.end());
}

void Server::end(ServedObject& object) {
  MutexLock lock(mutex_);
  const auto found = std::find(objects_.begin(), objects_.end(), &object);
  if (found == objects_.end()) return;
  objects_.erase(found);
  if (Endpoint* endpoint = findEndpoint(object.name)) endpoint->object = nullptr;
  if (isServerThread && running_ == &object) {
    log().Error("BUS %s: stopped from within its own transaction", object.name.c_str());
  } else {
    while (running_ == &object) transactionEnded_.wait(lock);
  }
  // Another object may have taken the name in the meantime.
  const auto ended = std::find_if(endpoints_.begin(), endpoints_.end(), [&](const auto& endpoint) {
    return endpoint->object == nullptr && endpoint->owned->name() == object.name;
  });
  if (ended == endpoints_.end()) return;
  for (auto it = connections_.begin(); it != connections_.end();) {
    it = it->second.endpoint == (*ended)->listenId ? connections_.erase(it) : std::next(it);
  }
  endpoints_.erase(ended);
}

int Server::claim(const std::string& name) {
  {
    const MutexLock lock(mutex_);
    if (ending_) return -1;
    if (findEndpoint(name) != nullptr) return 0;
  }
  pid_t owner = -1;
  auto owned = OwnedName::acquire(name, &owner);
  if (owned) return own(std::move(owned), false) ? 0 : -1;
  if (owner > 0) log().Error("BUS %s: process %d serves the name already", name.c_str(), owner);
  return owner;
}

void Server::serve(const std::string& name) {
  const MutexLock lock(mutex_);
  Endpoint* const endpoint = findEndpoint(name);
  if (endpoint == nullptr) {
    log().Error("BUS %s: not claimed", name.c_str());
    return;
  }
  endpoint->serving = true;
  attach(*endpoint);
}

bool Server::owns(const std::string& name) {
  const MutexLock lock(mutex_);
  return findEndpoint(name) != nullptr;
}

// Starts to listen on a newly acquired name.
bool Server::own(std::unique_ptr<OwnedName> owned, bool serving) {
  const MutexLock lock(mutex_);
  if (ending_ || !startThread()) return false;
  endpoints_.push_back(std::make_unique<Endpoint>());
  Endpoint& endpoint = *endpoints_.back();
  endpoint.owned = std::move(owned);
  endpoint.listenId = ++lastId_;
  endpoint.lockId = ++lastId_;
  endpoint.serving = serving;
  if (!watch(endpoint.owned->lock(), endpoint.lockId, EPOLLIN) ||
      !watch(endpoint.owned->listener(), endpoint.listenId, 0)) {
    endpoints_.pop_back();
    return false;
  }
  attach(endpoint);
  // Registered each time: serving must end before the objects that exist now are destroyed.
  atschost::atShutDown(atschost::ShutDownStage::kBus, [] { instance().shutDown(); });
  return true;
}

// Accepts callers if the endpoint serves and has an object to answer them.
void Server::attach(Endpoint& endpoint) {
  for (ServedObject* object : objects_) {
    if (object->name == endpoint.owned->name()) endpoint.object = object;
  }
  if (!endpoint.serving || endpoint.object == nullptr) return;
  endpoint.listening = true;
  resumeAccepting();
}

bool Server::startThread() {
  if (epoll_) return true;
  epoll_ = Fd(::epoll_create1(EPOLL_CLOEXEC));
  wake_ = Fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  try {
    if (epoll_ && wake_ && watch(wake_.get(), kWakeId, EPOLLIN)) {
      thread_.start("BUS server", [this] { run(); });
      return true;
    }
  } catch (const std::exception& error) {
    log().Error("BUS: no server thread: %s", error.what());
  }
  epoll_.reset();
  return false;
}

// Adds a descriptor to the epoll set, or changes its events.
bool Server::watch(int fd, uint64_t id, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event) == 0) return true;
  if (errno == ENOENT && ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) return true;
  log().Error("BUS: cannot wait for a socket: %s", std::strerror(errno));
  return false;
}

void Server::shutDown() {
  MutexLock lock(mutex_);
  if (ending_) return;
  ending_ = true;
  for (Client* client : clients_) client->endServerThreadCall();
  if (wake_) {
    const uint64_t one = 1;
    if (::write(wake_.get(), &one, sizeof one) < 0) log().Error("BUS: cannot wake its thread");
  }
  lock.unlock();
  thread_.join();
  lock.lock();
  connections_.clear();
  endpoints_.clear();
  objects_.clear();
}

void Server::add(Client& client) {
  const MutexLock lock(mutex_);
  clients_.insert(&client);
}

void Server::remove(Client& client) {
  const MutexLock lock(mutex_);
  clients_.erase(&client);
}

void Server::run() {
  isServerThread = true;
  std::array<epoll_event, 64> events;
  std::vector<uint64_t> turn;
  MutexLock lock(mutex_);
  while (!ending_) {
    const int timeout = !ready_.empty() ? 0 : paused_ ? static_cast<int>(kAcceptPause.count()) : -1;
    lock.unlock();
    const int count = ::epoll_wait(epoll_.get(), events.data(), events.size(), timeout);
    lock.lock();
    if (paused_ && std::chrono::steady_clock::now() >= resumeAt_) resumeAccepting();
    turn.swap(ready_);
    for (int i = 0; i < count; ++i) handle(events[static_cast<size_t>(i)].data.u64, true);
    for (const uint64_t id : turn) handle(id, false);
    turn.clear();
  }
}

// Handles an event of a socket, or the next buffered request of a connection.
void Server::handle(uint64_t id, bool hasEvent) {
  if (ending_) return;
  try {
    if (Connection* connection = findConnection(id)) {
      if (!connection->output.empty()) {
        if (hasEvent) flush(id, *connection);
      } else if (hasRequest(*connection) || (hasEvent && receive(id, *connection))) {
        nextRequest(id);
      }
    } else if (Endpoint* endpoint = findEndpoint(id)) {
      accept(*endpoint, id == endpoint->listenId);
    }
  } catch (const std::exception& error) {
    drop(id, error.what());
  }
}

void Server::accept(Endpoint& endpoint, bool fromListener) {
  const int listener = fromListener ? endpoint.owned->listener() : endpoint.owned->lock();
  Connection connection;
  connection.socket = Fd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  const char* const name = endpoint.owned->name().c_str();
  if (!connection.socket) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
    if (const char* const reason = std::strerror(errno); faults_.due(reason)) {
      log().Error("BUS %s: cannot accept a connection: %s", name, reason);
    }
    pauseAccepting();
    return;
  }
  // A connection to the lock only asks for the owner. The kernel has answered that.
  if (!fromListener) return;
  const auto peer = peerOf(connection.socket.get());
  if (!peer || peer->uid != ::geteuid()) {
    if (faults_.due("user")) {
      log().Error("BUS %s: process %d of another user (%u) was refused", name, peer ? peer->pid : 0,
                  peer ? peer->uid : 0);
    }
    return;
  }
  const auto ofPeer =
      static_cast<size_t>(std::count_if(connections_.begin(), connections_.end(),
                                        [&](auto& each) { return each.second.peer == peer->pid; }));
  const size_t most = maxConnections();
  if (ofPeer >= most / kPeersAtLeast || connections_.size() >= most) {
    if (faults_.due("connections")) {
      log().Error("BUS %s: process %d is refused: %zu connections of its own, %zu of all", name,
                  peer->pid, ofPeer, connections_.size());
    }
    return;
  }
  connection.peer = peer->pid;
  connection.endpoint = endpoint.listenId;
  const uint64_t id = ++lastId_;
  if (watch(connection.socket.get(), id, EPOLLIN)) connections_.emplace(id, std::move(connection));
}

void Server::pauseAccepting() {
  paused_ = true;
  resumeAt_ = std::chrono::steady_clock::now() + kAcceptPause;
  for (const auto& endpoint : endpoints_) {
    watch(endpoint->owned->listener(), endpoint->listenId, 0);
    watch(endpoint->owned->lock(), endpoint->lockId, 0);
  }
}

void Server::resumeAccepting() {
  paused_ = false;
  for (const auto& endpoint : endpoints_) {
    if (endpoint->listening) watch(endpoint->owned->listener(), endpoint->listenId, EPOLLIN);
    watch(endpoint->owned->lock(), endpoint->lockId, EPOLLIN);
  }
}

// Receives available bytes. Returns false when the connection has ended.
bool Server::receive(uint64_t id, Connection& connection) {
  const ssize_t got = ::recv(connection.socket.get(), connection.input.data() + connection.have,
                             connection.input.size() - connection.have, 0);
  if (got > 0) {
    connection.have += static_cast<size_t>(got);
    return true;
  }
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  drop(id, connection.have > 0 ? "it closed in the middle of a frame" : nullptr);
  return false;
}

// Returns whether the input starts with a complete request or a bad header.
bool Server::hasRequest(const Connection& connection) {
  if (connection.have < kHeaderSize) return false;
  const FrameHeader header = readHeader(connection.input.data());
  return header.length > kMaxBody || connection.have >= kHeaderSize + header.length;
}

// Runs the request at the start of a connection's input, if it is complete.
void Server::nextRequest(uint64_t id) {
  Connection* const connection = findConnection(id);
  if (connection == nullptr || connection->have < kHeaderSize) return;
  const FrameHeader header = readHeader(connection->input.data());
  if (header.kind != FrameKind::kRequest && header.kind != FrameKind::kRequestNoReply) {
    return drop(id, "malformed frame: no request");
  }
  if (header.length > kMaxBody) return drop(id, "malformed frame: too large");
  const size_t size = kHeaderSize + header.length;
  if (connection->have < size) {
    if (connection->have == connection->input.size()) {
      // The buffer grows with the bytes received, not with the announced length.
      connection->input.resize(std::min(size, 2 * connection->input.size()));
      limitBuffered();
    }
    return;
  }
  BUSPlatform::of(request_).clear();
  if (!BUSPlatform::of(request_).load(connection->input.data() + kHeaderSize, header.length)) {
    return drop(id, "malformed frame: bad item");
  }
  connection->have -= size;
  std::memmove(connection->input.data(), connection->input.data() + size, connection->have);
  if (connection->input.size() > kReceiveBuffer && connection->have < kReceiveBuffer) {
    connection->input.resize(kReceiveBuffer);
    connection->input.shrink_to_fit();
  }
  Endpoint* const endpoint = findEndpoint(connection->endpoint);
  if (endpoint == nullptr || endpoint->object == nullptr) return drop(id, nullptr);
  transact(id, header, *endpoint->object);
}

// Ends the connection with the largest buffers when all buffers together exceed the limit.
void Server::limitBuffered() {
  size_t total = 0;
  size_t most = 0;
  uint64_t largest = 0;
  for (const auto& [id, connection] : connections_) {
    const size_t buffered = connection.input.size() + connection.output.size();
    total += buffered;
    if (buffered > most) {
      most = buffered;
      largest = id;
    }
  }
  if (total > kMaxBuffered) drop(largest, "too much is buffered");
}

void Server::transact(uint64_t id, const FrameHeader& header, ServedObject& object) {
  BUSPlatform::of(reply_).clear();
  running_ = &object;
  mutex_.unlock();
  bool threw = true;
  try {
    BUSParam* const reply = header.kind == FrameKind::kRequest ? &reply_ : nullptr;
    object.server->onTransact(header.code, request_, reply, header.flags);
    threw = false;
  } catch (const std::exception& error) {
    log().Error("BUS: a transaction threw: %s", error.what());
  } catch (...) {
    log().Error("BUS: a transaction threw");
  }
  mutex_.lock();
  running_ = nullptr;
  transactionEnded_.notifyAll();
  if (forked_) return;
  Connection* const connection = findConnection(id);
  if (connection == nullptr) return;
  size_t size = threw ? 0 : BUSPlatform::of(reply_).seal(FrameKind::kReply, header.code, 0);
  if (size == 0) {
    if (const Endpoint* endpoint = findEndpoint(connection->endpoint); faults_.due("no reply")) {
      log().Error("BUS %s: process %d gets no reply: too large or failed",
                  endpoint != nullptr ? endpoint->owned->name().c_str() : "", connection->peer);
    }
    BUSPlatform::of(reply_).clear();
    size = BUSPlatform::of(reply_).seal(FrameKind::kFailure, header.code, 0);
  }
  if (hasRequest(*connection)) ready_.push_back(id);
  send(id, *connection, BUSPlatform::of(reply_).frame(), size);
}

// Sends a reply. Bytes that the socket does not take now wait in the connection.
void Server::send(uint64_t id, Connection& connection, const char* bytes, size_t size) {
  const ssize_t sent = ::send(connection.socket.get(), bytes, size, MSG_NOSIGNAL);
  if (sent == static_cast<ssize_t>(size)) return;
  if (sent < 0 && errno != EAGAIN && errno != EINTR) return drop(id, nullptr);
  connection.output.assign(bytes + std::max<ssize_t>(sent, 0), bytes + size);
  connection.sent = 0;
  watch(connection.socket.get(), id, EPOLLOUT);
  limitBuffered();
}

void Server::flush(uint64_t id, Connection& connection) {
  const ssize_t sent = ::send(connection.socket.get(), connection.output.data() + connection.sent,
                              connection.output.size() - connection.sent, MSG_NOSIGNAL);
  if (sent < 0) {
    if (errno != EAGAIN && errno != EINTR) drop(id, nullptr);
    return;
  }
  connection.sent += static_cast<size_t>(sent);
  if (connection.sent < connection.output.size()) return;
  std::vector<char>().swap(connection.output);
  watch(connection.socket.get(), id, EPOLLIN);
  if (hasRequest(connection)) ready_.push_back(id);
}

// Ends a connection and logs the reason, if any.
void Server::drop(uint64_t id, const char* reason) {
  const auto found = connections_.find(id);
  if (found == connections_.end()) return;
  if (reason != nullptr && faults_.due(reason)) {
    const Endpoint* const endpoint = findEndpoint(found->second.endpoint);
    log().Error("BUS %s: connection of process %d ended: %s",
                endpoint != nullptr ? endpoint->owned->name().c_str() : "", found->second.peer,
                reason);
  }
  connections_.erase(found);
}

Server::Endpoint* Server::findEndpoint(uint64_t id) {
  for (const auto& endpoint : endpoints_) {
    if (endpoint->listenId == id || endpoint->lockId == id) return endpoint.get();
  }
  return nullptr;
}

Server::Endpoint* Server::findEndpoint(const std::string& name) {
  for (const auto& endpoint : endpoints_) {
    if (endpoint->owned->name() == name) return endpoint.get();
  }
  return nullptr;
}

Server::Connection* Server::findConnection(uint64_t id) {
  const auto found = connections_.find(id);
  return found != connections_.end() ? &found->second : nullptr;
}

void expectServiceProcess() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (Server::instance().owns(ATSC_HOST_SERVICE_NAME)) return;
    log().Warn(
        "BUS %s: not claimed by this process, so that no command will be answered; call "
        "ATSC_host_claim() first and ATSC_host_serve() after ATSC_Service_db_init()",
        ATSC_HOST_SERVICE_NAME);
  });
}

}  // namespace bus

struct BUSServerInterface::Impl : bus::ServedObject {};

BUSServerInterface::BUSServerInterface(const char* name, const char* /*description*/)
    : impl_(std::make_unique<Impl>()) {
  impl_->name = name != nullptr ? name : "";
  impl_->server = this;
  bus::sweepOnce();
}

BUSServerInterface::~BUSServerInterface() { bus::Server::instance().end(*impl_); }

bus::ServedObject& BUSPlatform::of(BUSServerInterface& server) { return *server.impl_; }

void BUS_server_complete(BUSServerInterface* server) {
  bus::Server::instance().begin(BUSPlatform::of(*server));
}

void BUS_server_ends(BUSServerInterface* server) {
  bus::Server::instance().end(BUSPlatform::of(*server));
}

int ATSC_host_claim(const char* name) {
  return bus::Server::instance().claim(name != nullptr ? name : "");
}

void ATSC_host_serve(const char* name) {
  bus::Server::instance().serve(name != nullptr ? name : "");
}

int ATSC_host_find(const char* name) { return bus::findOwner(name != nullptr ? name : ""); }
