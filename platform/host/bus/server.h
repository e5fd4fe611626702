// The serving end of the BUS: one thread a process for all names and connections.
#ifndef ATSC_HOST_BUS_SERVER_H_
#define ATSC_HOST_BUS_SERVER_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bus/log.h"
#include "bus/name.h"
#include "bus/param.h"
#include "bus/socket.h"
#include "process/mutex.h"
#include "process/thread.h"

namespace bus {

using atschost::CondVar;
using atschost::Mutex;
using atschost::MutexLock;

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
  // Around a fork: the analysis sees one function at a time.
  static void lockBeforeFork() NO_THREAD_SAFETY_ANALYSIS;
  static void unlockAfterFork() NO_THREAD_SAFETY_ANALYSIS;
  static void resetAfterFork() NO_THREAD_SAFETY_ANALYSIS;

  bool own(std::unique_ptr<OwnedName> owned, bool serving) EXCLUDES(mutex_);
  void attach(Endpoint& endpoint) REQUIRES(mutex_);
  void accept(Endpoint& endpoint, bool fromListener) REQUIRES(mutex_);
  void pauseAccepting() REQUIRES(mutex_);
  void resumeAccepting() REQUIRES(mutex_);
  bool startThread() REQUIRES(mutex_);
  bool watch(int fd, uint64_t id, uint32_t events) REQUIRES(mutex_);

  void run() EXCLUDES(mutex_);
  void handle(uint64_t id, bool hasEvent) REQUIRES(mutex_);
  static bool hasRequest(const Connection& connection);
  bool receive(uint64_t id, Connection& connection) REQUIRES(mutex_);
  void nextRequest(uint64_t id) REQUIRES(mutex_);
  void limitBuffered() REQUIRES(mutex_);
  void transact(uint64_t id, const FrameHeader& header, ServedObject& object) REQUIRES(mutex_);
  void send(uint64_t id, Connection& connection, const char* bytes, size_t size) REQUIRES(mutex_);
  void flush(uint64_t id, Connection& connection) REQUIRES(mutex_);
  void drop(uint64_t id, const char* reason) REQUIRES(mutex_);

  Endpoint* findEndpoint(uint64_t id) REQUIRES(mutex_);
  Endpoint* findEndpoint(const std::string& name) REQUIRES(mutex_);
  Connection* findConnection(uint64_t id) REQUIRES(mutex_);

  Mutex mutex_;
  CondVar transactionEnded_;
  atschost::Thread thread_;  // started under the mutex
  std::atomic<bool> ending_{false};
  bool forked_ GUARDED_BY(mutex_) = false;  // this is the parent's server, seen from a child
  // No descriptors left: nothing is accepted for a while.
  bool paused_ GUARDED_BY(mutex_) = false;
  std::chrono::steady_clock::time_point resumeAt_ GUARDED_BY(mutex_);
  Faults faults_ GUARDED_BY(mutex_);
  Fd epoll_;  // made before the thread starts
  Fd wake_ GUARDED_BY(mutex_);
  uint64_t lastId_ GUARDED_BY(mutex_) = 0;
  std::vector<std::unique_ptr<Endpoint>> endpoints_ GUARDED_BY(mutex_);
  std::unordered_map<uint64_t, Connection> connections_ GUARDED_BY(mutex_);
  // Connections that may have another whole request buffered.
  std::vector<uint64_t> ready_ GUARDED_BY(mutex_);
  std::vector<ServedObject*> objects_ GUARDED_BY(mutex_);  // complete ones
  ServedObject* running_ GUARDED_BY(mutex_) = nullptr;
  std::unordered_set<Client*> clients_ GUARDED_BY(mutex_);
  const Server* parent_ = nullptr;  // keeps the memory of the parent's server referenced

  // Used by the server thread only; kept to be reused.
  BUSParam request_;
  BUSParam reply_;
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_SERVER_H_
