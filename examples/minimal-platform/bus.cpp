// BUS over Unix sockets. A served name is the socket "/tmp/.BUS." + name, a transaction is a
// connection with one request frame and one reply frame. Implements the classes of bus.h but not
// the functions of bus_lifetime.h: the base class's constructor registers a server.
#include "bus.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <string>
#include <utility>

#include "minimal_platform.h"
#include "mutex.h"
#include "process.h"
#include "set.h"

namespace {

using minimal::log;
using minimal::Mutex;
using minimal::MutexLock;

// Every process that loads the library constructs a server with this name, before main(). It
// answers only in the process that has called MINIMAL_claim() and MINIMAL_serve().
constexpr const char* kServiceName = "atsc.qel.service.srv";
constexpr const char* kPrefix = ".BUS.";
constexpr size_t kMaxParcel = 1 << 20;                   // bytes
constexpr time_t kPeerSeconds = 2;                       // timeout for sending or receiving a frame
constexpr std::chrono::milliseconds kConstruction(100);  // time for derived constructors

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

std::string pathOf(const std::string& name) { return std::string("/tmp/") + kPrefix + name; }

bool addressOf(const std::string& path, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  if (path.size() >= sizeof address->sun_path) return false;
  std::memcpy(address->sun_path, path.c_str(), path.size());
  return true;
}

Fd newSocket() { return Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

Fd connectTo(const std::string& path) {
  sockaddr_un address;
  Fd socket = newSocket();
  if (!socket || !addressOf(path, &address)) return Fd();
  while (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    if (errno != EINTR) return Fd();
  }
  return socket;
}

// Serializes creation and removal of socket files across processes, so that no process removes a
// file that another process is creating. The lock file stays.
class NameLock {
 public:
  NameLock() : file_(::open("/tmp/.BUS.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    while (file_ && ::flock(file_.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }

 private:
  Fd file_;
};

// Returns true if a process listens on the socket. Removes the file that a dead process has left.
// The caller holds NameLock.
bool inUse(const std::string& path) {
  if (connectTo(path)) return true;
  if (errno == ECONNREFUSED) ::unlink(path.c_str());
  return false;
}

// Removes the files of dead processes. ATSC_RegisterTVServerBackend() fails while the file of a TV
// application exists, even if that application was killed.
void removeDeadNames() {
  const NameLock lock;
  DIR* const folder = ::opendir("/tmp");
  if (folder == nullptr) return;
  while (const dirent* const entry = ::readdir(folder)) {
    if (std::strncmp(entry->d_name, kPrefix, std::strlen(kPrefix)) == 0) {
      inUse(std::string("/tmp/") + entry->d_name);
    }
  }
  ::closedir(folder);
}

bool sendAll(const Fd& socket, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = ::send(socket.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    sent += n;
  }
  return true;
}

bool receiveAll(const Fd& socket, void* to, size_t size) {
  for (size_t got = 0; got < size;) {
    const ssize_t n = ::recv(socket.get(), static_cast<char*>(to) + got, size - got, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    got += n;
  }
  return true;
}

void putNumber(uint32_t value, std::string* bytes) {
  bytes->append(reinterpret_cast<const char*>(&value), sizeof value);
}

bool takeNumber(const std::string& bytes, size_t* at, uint32_t* value) {
  if (bytes.size() - *at < sizeof *value) return false;
  std::memcpy(value, bytes.data() + *at, sizeof *value);
  *at += sizeof *value;
  return true;
}

}  // namespace

struct BUSParam::Impl {
  struct Item {
    bool isText;
    int32_t number;
    std::string text;
  };
  // A deque, as readCString() returns pointers into its items.
  std::deque<Item> items;
  size_t next = 0;
  size_t size = 0;  // of bytes()

  bool add(bool isText, int32_t number, const char* text, size_t length) {
    constexpr size_t kHead = 1 + sizeof(uint32_t);
    if (length > kMaxParcel || size + kHead + length > kMaxParcel) return false;
    items.push_back({isText, number, std::string(text, length)});
    size += kHead + length;
    return true;
  }

  // Serializes the items: 'i' and the number, or 't', the length and the text.
  std::string bytes() const {
    std::string out;
    for (const Item& item : items) {
      out += item.isText ? 't' : 'i';
      putNumber(item.isText ? item.text.size() : item.number, &out);
      out += item.text;
    }
    return out;
  }

  bool parse(const std::string& in) {
    for (size_t at = 0; at < in.size();) {
      const char kind = in[at++];
      uint32_t number = 0;
      if ((kind != 'i' && kind != 't') || !takeNumber(in, &at, &number)) return false;
      const size_t length = kind == 't' ? number : 0;
      if (length > in.size() - at) return false;
      if (!add(kind == 't', number, in.data() + at, length)) return false;
      at += length;
    }
    return true;
  }
};

struct BUSPlatform {
  static BUSParam::Impl& of(BUSParam& parcel) { return *parcel.impl_; }
};

BUSParam::BUSParam() : impl_(new Impl) {}
BUSParam::~BUSParam() = default;

int BUSParam::writeCString(const char* text) {
  return text != nullptr && impl_->add(true, 0, text, std::strlen(text)) ? 0 : -1;
}

const char* BUSParam::readCString() {
  if (impl_->next >= impl_->items.size() || !impl_->items[impl_->next].isText) return nullptr;
  return impl_->items[impl_->next++].text.c_str();
}

int BUSParam::writeInt32(int32_t value) { return impl_->add(false, value, "", 0) ? 0 : -1; }

int32_t BUSParam::readInt32() {
  while (impl_->next < impl_->items.size()) {
    const Impl::Item& item = impl_->items[impl_->next++];
    if (!item.isText) return item.number;
  }
  return 0;
}

namespace {

// Sends a frame: code, flags and size of the parcel, then the parcel. Replies have code and flags
// 0.
bool sendFrame(const Fd& socket, uint32_t code, uint32_t flags, const std::string& parcel) {
  std::string bytes;
  for (const uint32_t number : {code, flags, static_cast<uint32_t>(parcel.size())}) {
    putNumber(number, &bytes);
  }
  return sendAll(socket, bytes + parcel);
}

bool receiveFrame(const Fd& socket, uint32_t* code, uint32_t* flags, BUSParam* parcel) {
  uint32_t head[3];
  if (!receiveAll(socket, head, sizeof head) || head[2] > kMaxParcel) return false;
  *code = head[0];
  *flags = head[1];
  std::string bytes(head[2], '\0');
  return receiveAll(socket, bytes.data(), bytes.size()) && BUSPlatform::of(*parcel).parse(bytes);
}

struct Server {
  std::string name;
  BUSServerInterface* object = nullptr;
  Fd listener;
  Fd wake;
  minimal::Worker worker;

  ~Server() { end(); }

  bool claim() {
    if (listener) return true;
    const NameLock lock;
    const std::string path = pathOf(name);
    sockaddr_un address;
    Fd socket = newSocket();
    if (!socket || !addressOf(path, &address) || inUse(path) ||
        ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      log().Error("BUS %s: the name is not free", name.c_str());
      return false;
    }
    if (::listen(socket.get(), SOMAXCONN) != 0) return false;
    listener = std::move(socket);
    return minimal::endAtExit();
  }

  bool serve() {
    if (!listener) return false;
    if (wake) return true;
    wake = Fd(::eventfd(0, EFD_CLOEXEC));
    // serve() is called in the base class's constructor, and the BUS cannot detect when the derived
    // constructors, which take microseconds, have returned. Clients wait in the listener's queue.
    return wake && worker.post([this] { run(); }, kConstruction);
  }

  void end() {
    if (!listener) return;
    const uint64_t one = 1;
    if (wake && ::write(wake.get(), &one, sizeof one) < 0) {
      log().Error("BUS: %s", std::strerror(errno));
    }
    worker.end();
    const NameLock lock;
    ::unlink(pathOf(name).c_str());
    listener = Fd();
  }

  void run() {
    pollfd waiting[] = {{wake.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
    while (waiting[0].revents == 0) {
      const int count = ::poll(waiting, 2, -1);
      if (count < 0 && errno != EINTR) return;
      if (count < 0 || waiting[0].revents != 0 || (waiting[1].revents & POLLIN) == 0) continue;
      const Fd peer(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (peer) transaction(peer);
    }
  }

  void transaction(const Fd& peer) {
    const timeval patience = {kPeerSeconds, 0};
    ::setsockopt(peer.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(peer.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    uint32_t code = 0;
    uint32_t flags = 0;
    BUSParam request;
    // A peer that only checks whether the name is in use sends nothing.
    if (!receiveFrame(peer, &code, &flags, &request)) return;
    BUSParam reply;
    object->onTransact(code, request, &reply, flags);
    if (!sendFrame(peer, 0, 0, BUSPlatform::of(reply).bytes())) {
      log().Warn("BUS %s: the caller has gone", name.c_str());
    }
  }
};

// All servers of this process, including those that do not answer.
struct Servers {
  Mutex mutex;
  std::deque<Server*> all GUARDED_BY(mutex);
};

Servers& servers() { return minimal::immortal<Servers>(); }

// Returns the server that the library constructs when it is loaded, or null.
Server* serviceServer() EXCLUDES(servers().mutex) {
  const MutexLock lock(servers().mutex);
  for (Server* server : servers().all) {
    if (server->name == kServiceName) return server;
  }
  log().Error("BUS: this process has not loaded the library");
  return nullptr;
}

}  // namespace

void minimal::endServers() {
  std::deque<Server*> all;
  {
    const MutexLock lock(servers().mutex);
    all = servers().all;
  }
  for (Server* server : all) server->end();
}

struct BUSServerInterface::Impl : Server {};

BUSServerInterface::BUSServerInterface(const char* name, const char* /*description*/)
    : impl_(new Impl) {
  impl_->name = name;
  impl_->object = this;
  {
    const MutexLock lock(servers().mutex);
    servers().all.push_back(impl_.get());
  }
  if (impl_->name == kServiceName) {
    removeDeadNames();
  } else if (!impl_->claim() || !impl_->serve()) {
    log().Error("BUS %s: not served", impl_->name.c_str());
  }
}

// The derived part is already destroyed. At exit, endServers() has stopped the thread before.
BUSServerInterface::~BUSServerInterface() {
  const MutexLock lock(servers().mutex);
  auto& all = servers().all;
  all.erase(std::remove(all.begin(), all.end(), impl_.get()), all.end());
}

int MINIMAL_claim(void) {
  Server* const service = serviceServer();
  return service != nullptr && service->claim() ? 0 : -1;
}

int MINIMAL_serve(void) {
  Server* const service = serviceServer();
  return service != nullptr && service->serve() ? 0 : -1;
}

struct BUSClientInterface::Impl {
  std::string name;
  Mutex mutex;
};

BUSClientInterface::BUSClientInterface(const char* name, const char* /*description*/)
    : impl_(new Impl) {
  impl_->name = name;
}

BUSClientInterface::~BUSClientInterface() = default;

int BUSClientInterface::transact(unsigned int code, BUSParam& data, BUSParam* reply,
                                 unsigned int flags) {
  const MutexLock lock(impl_->mutex);
  const std::string path = pathOf(impl_->name);
  const Fd server = connectTo(path);
  if (!server) {
    if (errno == ECONNREFUSED) {
      const NameLock names;
      inUse(path);
    }
    return -1;
  }
  BUSParam ignored;
  uint32_t zero[2];
  const bool done = sendFrame(server, code, flags, BUSPlatform::of(data).bytes()) &&
                    receiveFrame(server, &zero[0], &zero[1], reply != nullptr ? reply : &ignored);
  return done ? 0 : -1;
}
