#include "http/server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "http/descriptor.h"
#include "http/intake.h"
#include "http/site.h"

namespace web {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr size_t kMostConnections = 64;
constexpr size_t kMostPages = 16;
// More than another program can open: as long as all are taken at once, a page gets its turn.
constexpr int kMostPerSecond = 50'000;
// What all connections together have sent or not yet taken.
constexpr size_t kMostBuffered = 8'000'000;
constexpr size_t kWorkers = 8;
constexpr size_t kEventPiece = 65'536;

constexpr seconds kIdleTime{30};
constexpr seconds kLingerTime{2};

[[noreturn]] void failAddress(const std::string& address, uint16_t port) {
  throw std::runtime_error(address + " port " + std::to_string(port) + ": " +
                           std::generic_category().message(errno));
}

struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t size = sizeof storage;
  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
  sockaddr_in* ip4() { return reinterpret_cast<sockaddr_in*>(&storage); }
  sockaddr_in6* ip6() { return reinterpret_cast<sockaddr_in6*>(&storage); }
};

uint16_t portOf(int socket) {
  SocketAddress address;
  getsockname(socket, address.get(), &address.size);
  return ntohs(address.storage.ss_family == AF_INET ? address.ip4()->sin_port
                                                    : address.ip6()->sin6_port);
}

// Returns this machine's address of a connection.
std::string localOf(int socket) {
  SocketAddress address;
  getsockname(socket, address.get(), &address.size);
  const bool ip4 = address.storage.ss_family == AF_INET;
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(address.storage.ss_family,
            ip4 ? static_cast<void*>(&address.ip4()->sin_addr) : &address.ip6()->sin6_addr, text,
            sizeof text);
  return text;
}

// Returns nothing if this machine has no such address.
std::optional<Descriptor> listenOn(const std::string& text, uint16_t port) {
  SocketAddress address;
  if (inet_pton(AF_INET, text.c_str(), &address.ip4()->sin_addr) == 1) {
    address.storage.ss_family = AF_INET;
    address.ip4()->sin_port = htons(port);
    address.size = sizeof(sockaddr_in);
  } else if (inet_pton(AF_INET6, text.c_str(), &address.ip6()->sin6_addr) == 1) {
    address.storage.ss_family = AF_INET6;
    address.ip6()->sin6_port = htons(port);
    address.size = sizeof(sockaddr_in6);
  } else {
    throw std::runtime_error("'" + text + "' is no IP address");
  }
  Descriptor listener(
      socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int yes = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (address.storage.ss_family == AF_INET6) {
    setsockopt(listener.get(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
  }
  if (bind(listener.get(), address.get(), address.size) != 0) {
    if (errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT || errno == EBADF) return std::nullopt;
    failAddress(text, port);
  }
  if (listen(listener.get(), SOMAXCONN) != 0) failAddress(text, port);
  return listener;
}

}  // namespace

// One thread reads and writes all sockets and never waits for one of them; workers answer whole
// requests. So a slow client holds a connection, but no thread.
class HttpServer::Loop {
 public:
  Loop(const Options& options, const Router& router, EventHub& hub)
      : options_(options),
        address_(options.address.empty() ? "127.0.0.1" : options.address),
        listeners_(listenAll(options)),
        port_(portOf(listeners_.front().get())),
        wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        hub_(hub),
        site_(port_, options.token, router, hub) {
    if (wake_.get() < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  ~Loop() { stop(); }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  uint16_t port() const { return port_; }
  const std::string& address() const { return address_; }

  void start() {
    hub_.onPublished([this] { wake(); });
    for (size_t index = 0; index < kWorkers; ++index) {
      threads_.emplace_back([this] { work(); });
    }
    threads_.emplace_back([this] { serve(); });
  }

  void stop() {
    hub_.onPublished(nullptr);
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
    }
    toDo_.notify_all();
    wake();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    connections_.clear();
    listeners_.clear();
  }

 private:
  enum class State {
    kReading,    // a request, or waits for its first byte
    kWorking,    // a worker has the connection
    kWriting,    // an answer
    kEvents,     // writes events
    kLingering,  // reads what the client still sends, so that it gets the answer
    kClosed,
  };

  struct Connection {
    Connection(Descriptor&& descriptor, Clock::time_point now, Clock::time_point until)
        : socket(std::move(descriptor)),
          local(localOf(socket.get())),
          since(now),
          deadline(until) {}

    Descriptor socket;
    const std::string local;
    State state = State::kReading;
    Intake intake;
    WholeRequest request;
    std::string output;
    size_t sent = 0;
    bool keep = true;
    bool timed = true;  // the deadline is that of a request that has begun
    EventHub::Subscriber page;
    Clock::time_point since;     // when the state began
    Clock::time_point deadline;  // for events: of the next comment, or of what is being written
  };

  static std::vector<Descriptor> listenAll(const Options& options) {
    std::vector<Descriptor> listeners;
    const bool both = options.address.empty();
    if (auto first = listenOn(both ? "127.0.0.1" : options.address, options.port)) {
      listeners.push_back(*std::move(first));
    } else {
      failAddress(both ? "127.0.0.1" : options.address, options.port);
    }
    if (both) {
      if (auto second = listenOn("::1", portOf(listeners.front().get()))) {
        listeners.push_back(*std::move(second));
      }
    }
    return listeners;
  }

  void wake() const {
    const uint64_t one = 1;
    // Fails only when it is to wake up anyway.
    [[maybe_unused]] const ssize_t written = write(wake_.get(), &one, sizeof one);
  }

  // Workers.

  void work() {
    for (;;) {
      Connection* connection = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        toDo_.wait(lock, [this] { return stopped_ || !requests_.empty(); });
        if (stopped_) return;
        connection = requests_.front();
        requests_.pop_front();
      }
      Site::Outcome outcome;
      try {
        outcome = site_.answer(connection->request, connection->local);
      } catch (const std::exception&) {
        outcome.bytes = Site::refusal(500, "internal", "the request failed");
      }
      connection->request = {};
      connection->output = std::move(outcome.bytes);
      connection->keep = outcome.keep;
      // Most answers are sent at once. Events follow on the other thread.
      if (!outcome.page) sendSome(*connection);
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        answered_.emplace_back(connection, outcome.page);
      }
      wake();
    }
  }

  // Sends what the socket takes. Returns whether the connection is still good.
  static bool sendSome(Connection& connection) {
    while (connection.sent < connection.output.size()) {
      const ssize_t size =
          send(connection.socket.get(), connection.output.data() + connection.sent,
               connection.output.size() - connection.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0) return errno == EAGAIN || errno == EWOULDBLOCK;
      connection.sent += static_cast<size_t>(size);
    }
    connection.output.clear();
    if (connection.output.capacity() > kEventPiece) connection.output.shrink_to_fit();
    connection.sent = 0;
    return true;
  }

  // The thread of the sockets.

  void serve() {
    std::vector<pollfd> polled;
    std::vector<Connection*> polledConnections;
    for (;;) {
      const Clock::time_point now = Clock::now();
      takeAnswered(now);
      for (Connection& connection : connections_) {
        if (connection.state == State::kEvents) writeEvents(connection, now);
        if (now >= connection.deadline) expire(connection, now);
      }
      connections_.remove_if(
          [](const Connection& connection) { return connection.state == State::kClosed; });
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (stopped_) return;
      }

      polled.assign(1, {wake_.get(), POLLIN, 0});
      polledConnections.assign(1, nullptr);
      Clock::time_point next = Clock::time_point::max();
      for (Connection& connection : connections_) {
        if (connection.state == State::kWorking) continue;
        next = std::min(next, connection.deadline);
        const short events = connection.output.empty() ? POLLIN : POLLIN | POLLOUT;
        polled.push_back(
            {connection.socket.get(),
             static_cast<short>(connection.state == State::kWriting ? POLLOUT : events), 0});
        polledConnections.push_back(&connection);
      }
      if (now - secondBegan_ >= seconds(1)) {
        secondBegan_ = now;
        accepted_ = 0;
      }
      if (accepted_ >= kMostPerSecond) {
        next = std::min(next, secondBegan_ + seconds(1));
      } else if (connections_.size() < kMostConnections || oldestWaiting() != connections_.end()) {
        for (const Descriptor& listener : listeners_) {
          polled.push_back({listener.get(), POLLIN, 0});
          polledConnections.push_back(nullptr);
        }
      }
      int timeout = -1;
      if (next != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
        timeout = static_cast<int>(std::max<decltype(left)>(left, 0));
      }
      if (poll(polled.data(), polled.size(), timeout) < 0) continue;

      if (polled[0].revents != 0) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t size = read(wake_.get(), &count, sizeof count);
      }
      const Clock::time_point polledAt = Clock::now();
      for (size_t index = 1; index < polled.size(); ++index) {
        if (polled[index].revents == 0) continue;
        if (Connection* const connection = polledConnections[index]) {
          progress(*connection, polled[index].revents, polledAt);
        }
      }
      // Last: makes room by closing others.
      for (size_t index = 1; index < polled.size(); ++index) {
        if (polled[index].revents != 0 && polledConnections[index] == nullptr) {
          acceptFrom(polled[index].fd, polledAt);
        }
      }
    }
  }

  std::list<Connection>::iterator oldestWaiting() {
    auto oldest = connections_.end();
    for (auto each = connections_.begin(); each != connections_.end(); ++each) {
      const bool waiting = each->state == State::kReading || each->state == State::kLingering;
      if (waiting && (oldest == connections_.end() || each->since < oldest->since)) oldest = each;
    }
    return oldest;
  }

  void acceptFrom(int listener, Clock::time_point now) {
    while (accepted_ < kMostPerSecond) {
      if (connections_.size() >= kMostConnections) {
        const auto oldest = oldestWaiting();
        // Whoever came with this round keeps the place.
        if (oldest == connections_.end() || oldest->since == now) return;
        connections_.erase(oldest);
      }
      Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (socket.get() < 0) {
        // Without descriptors the client waits, as it does while there are too many.
        if (errno == EMFILE || errno == ENFILE) accepted_ = kMostPerSecond;
        return;
      }
      ++accepted_;
      const int yes = 1;
      setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
      connections_.emplace_back(std::move(socket), now, now + options_.requestTime);
    }
  }

  void progress(Connection& connection, short events, Clock::time_point now) {
    switch (connection.state) {
      case State::kReading:
        receive(connection, now);
        break;
      case State::kWriting:
        if (!sendSome(connection)) {
          connection.state = State::kClosed;
        } else if (connection.output.empty()) {
          answered(connection, now);
        }
        break;
      case State::kEvents:
      case State::kLingering:
        // Nothing more is expected but the end.
        if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !discard(connection)) {
          connection.state = State::kClosed;
        }
        break;
      case State::kWorking:
      case State::kClosed:
        break;
    }
  }

  // Returns whether the client is still there.
  static bool discard(Connection& connection) {
    std::array<char, 4096> buffer;
    const ssize_t size = recv(connection.socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    return size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
  }

  void receive(Connection& connection, Clock::time_point now) {
    std::array<char, 16'384> buffer;
    const ssize_t size = recv(connection.socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) {
      connection.state = State::kClosed;
      return;
    }
    connection.intake.feed({buffer.data(), static_cast<size_t>(size)});
    if (!connection.timed && connection.intake.started()) {
      connection.timed = true;
      connection.deadline = now + options_.requestTime;
    }
    makeRoom();
    if (connection.state == State::kReading) toWorkers(connection);
  }

  // Gives the next request to the workers if it is whole.
  void toWorkers(Connection& connection) {
    if (!connection.intake.next(&connection.request)) return;
    connection.state = State::kWorking;
    connection.deadline = Clock::time_point::max();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(&connection);
    }
    toDo_.notify_one();
  }

  // Closes those connections that hold most, until the others fit: who reads and writes at once
  // holds little. One may hold more, as the answer with all channels of a source.
  void makeRoom() {
    for (;;) {
      size_t sum = 0;
      size_t most = 0;
      Connection* largest = nullptr;
      for (Connection& connection : connections_) {
        if (connection.state == State::kWorking) continue;
        const size_t held = connection.intake.size() + connection.output.size();
        sum += held;
        if (held <= most) continue;
        most = held;
        largest = &connection;
      }
      if (sum - most <= kMostBuffered) return;
      largest->state = State::kClosed;
      largest->intake = {};
      largest->output = {};
    }
  }

  void takeAnswered(Clock::time_point now) {
    decltype(answered_) done;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      done.swap(answered_);
    }
    for (const auto& [connection, page] : done) {
      connection->since = now;
      connection->deadline = now + options_.answerTime;
      connection->state = State::kWriting;
      if (page) {
        startEvents(*connection, *page, now);
      } else if (connection->output.empty()) {
        answered(*connection, now);
      }
    }
    if (!done.empty()) makeRoom();
  }

  void startEvents(Connection& connection, const EventHub::Subscriber& page,
                   Clock::time_point now) {
    const auto pages =
        std::count_if(connections_.begin(), connections_.end(),
                      [](const Connection& each) { return each.state == State::kEvents; });
    if (static_cast<size_t>(pages) >= kMostPages) {
      refuse(connection, now, 503, "pages");
      return;
    }
    connection.state = State::kEvents;
    connection.page = page;
    connection.deadline = now + options_.commentTime;
  }

  // Adds something new only when the client has taken what there was, so that a slow one gets no
  // state that is out of date.
  void writeEvents(Connection& connection, Clock::time_point now) {
    bool stuck = !connection.output.empty();
    for (;;) {
      if (!sendSome(connection)) {
        connection.state = State::kClosed;
        return;
      }
      if (!connection.output.empty()) {
        if (!stuck) connection.deadline = now + options_.answerTime;
        return;
      }
      if (stuck) connection.deadline = now + options_.commentTime;
      stuck = false;
      connection.output = hub_.take(connection.page, kEventPiece);
      if (connection.output.empty()) {
        if (now < connection.deadline) return;
        connection.output = ":\n\n";
      }
      connection.deadline = now + options_.commentTime;
    }
  }

  // The whole answer has been sent.
  void answered(Connection& connection, Clock::time_point now) {
    connection.since = now;
    if (!connection.keep) {
      linger(connection, now);
      return;
    }
    connection.state = State::kReading;
    connection.timed = connection.intake.started();
    connection.deadline = now + (connection.timed ? options_.requestTime : kIdleTime);
    toWorkers(connection);
  }

  void refuse(Connection& connection, Clock::time_point now, int status, const char* error) {
    connection.intake = {};
    connection.output = Site::refusal(status, error, "too much at once");
    connection.keep = false;
    connection.since = now;
    connection.state = State::kWriting;
    connection.deadline = now + options_.answerTime;
    if (!sendSome(connection)) {
      connection.state = State::kClosed;
    } else if (connection.output.empty()) {
      linger(connection, now);
    }
  }

  // Ends the answer, and waits for the client's end: bytes that nobody reads would discard it.
  void linger(Connection& connection, Clock::time_point now) {
    shutdown(connection.socket.get(), SHUT_WR);
    connection.intake = {};
    connection.state = State::kLingering;
    connection.deadline = now + kLingerTime;
  }

  void expire(Connection& connection, Clock::time_point now) {
    if (connection.state == State::kReading && connection.timed && connection.intake.started()) {
      refuse(connection, now, 408, "slow");
    } else {
      connection.state = State::kClosed;
    }
  }

  const Options options_;
  const std::string address_;
  std::vector<Descriptor> listeners_;
  const uint16_t port_;
  const Descriptor wake_;
  EventHub& hub_;
  Site site_;

  std::mutex mutex_;  // for the next four
  std::condition_variable toDo_;
  bool stopped_ = false;
  std::deque<Connection*> requests_;
  std::vector<std::pair<Connection*, std::optional<EventHub::Subscriber>>> answered_;

  // Those of the thread of the sockets. A connection that works belongs to its worker.
  std::list<Connection> connections_;
  Clock::time_point secondBegan_;
  int accepted_ = 0;
  std::vector<std::thread> threads_;
};

HttpServer::HttpServer(const Options& options, const Router& router, EventHub& hub)
    : loop_(std::make_unique<Loop>(options, router, hub)) {}

HttpServer::~HttpServer() = default;

void HttpServer::start() { loop_->start(); }

void HttpServer::stop() { loop_->stop(); }

uint16_t HttpServer::port() const { return loop_->port(); }

std::string HttpServer::url() const {
  const std::string& address = loop_->address();
  const bool ip6 = address.find(':') != std::string::npos;
  return "http://" + (ip6 ? "[" + address + "]" : address) + ":" + std::to_string(port()) + "/";
}

}  // namespace web
