// The serving end of the BUS: one thread a process for all names and connections.
#ifndef ATSC_HOST_BUS_SERVER_H_
#define ATSC_HOST_BUS_SERVER_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bus/log.h"
#include "bus/name.h"
#include "bus/param.h"
#include "bus/socket.h"

namespace bus {

class Client;

// Warns, once a process, where this one has not claimed the service's name: for what only the
// service process does.
void expectServiceProcess();

// What a BUSServerInterface registers.
struct ServedObject {
  std::string name;
  BUSServerInterface* server;
};

// The process's server. Its mutex is held by the server thread at all times but while it waits for
// events and while a transaction runs, so every other member may be used by any thread with the
// mutex held; after both, connections and names are looked up again by id.
class Server {
 public:
  // Made on first use and never destroyed: the objects of a process go in any order at exit.
  static Server& instance();

  // Whether the calling thread is the server thread.
  static bool onServerThread();

  // See BUS_server_complete() and BUS_server_ends().
  void begin(ServedObject& object);
  void end(ServedObject& object);

  // See ATSC_host_claim() and ATSC_host_serve().
  int claim(const std::string& name);
  void serve(const std::string& name);
  bool owns(const std::string& name);

  // The process exits: waits for a running transaction, gives every name back.
  void shutDown();
  bool ending() const { return ending_; }

  void add(Client& client);
  void remove(Client& client);

 private:
  struct Endpoint {
    std::unique_ptr<OwnedName> owned;
    uint64_t listenId;
    uint64_t lockId;
    bool serving;            // false: claimed, callers wait
    bool listening = false;  // connections are being accepted
    ServedObject* object = nullptr;
  };

  struct Connection {
    Fd socket;
    pid_t peer = 0;
    uint64_t endpoint = 0;  // its listen_id
    std::vector<char> input = std::vector<char>(kReceiveBuffer);
    size_t have = 0;           // bytes in `input`
    std::vector<char> output;  // the rest of a reply; nothing is read until it has gone
    size_t sent = 0;           // bytes of `output`
  };

  Server() = default;
  static Server*& current();
  static void resetAfterFork();

  bool own(std::unique_ptr<OwnedName> owned, bool serving);
  void attach(Endpoint& endpoint);
  void accept(Endpoint& endpoint, bool fromListener);
  void pauseAccepting();
  void resumeAccepting();
  bool startThread();
  bool watch(int fd, uint64_t id, uint32_t events);

  void run();
  void handle(uint64_t id, bool hasEvent, std::unique_lock<std::mutex>& lock);
  static bool hasRequest(const Connection& connection);
  bool receive(uint64_t id, Connection& connection);
  void nextRequest(uint64_t id, std::unique_lock<std::mutex>& lock);
  void limitBuffered();
  void transact(uint64_t id, const FrameHeader& header, ServedObject& object,
                std::unique_lock<std::mutex>& lock);
  void send(uint64_t id, Connection& connection, const char* bytes, size_t size);
  void flush(uint64_t id, Connection& connection);
  void drop(uint64_t id, const char* reason);

  Endpoint* findEndpoint(uint64_t id);
  Endpoint* findEndpoint(const std::string& name);
  Connection* findConnection(uint64_t id);

  std::mutex mutex_;
  std::condition_variable transactionEnded_;
  std::thread thread_;
  std::atomic<bool> ending_{false};
  bool forked_ = false;  // this is the parent's server, seen from a child
  bool paused_ = false;  // no descriptors left: nothing is accepted for a while
  std::chrono::steady_clock::time_point resumeAt_;
  Faults faults_;
  Fd epoll_;
  Fd wake_;
  uint64_t lastId_ = 0;
  std::vector<std::unique_ptr<Endpoint>> endpoints_;
  std::unordered_map<uint64_t, Connection> connections_;
  std::vector<uint64_t> ready_;         // connections that may have another whole request buffered
  std::vector<ServedObject*> objects_;  // complete ones
  ServedObject* running_ = nullptr;
  std::unordered_set<Client*> clients_;
  const Server* parent_ = nullptr;  // keeps the memory of the parent's server referenced

  // Used by the server thread only; kept to be reused.
  BUSParam request_;
  BUSParam reply_;
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_SERVER_H_
