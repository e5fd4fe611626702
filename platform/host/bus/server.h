// Server side of the BUS: one thread per process for all names and connections.
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

// Logs a warning, once per process, if this process has not claimed the service's name. For
// functions that only the service process calls.
void expectServiceProcess();

// A registered BUSServerInterface.
struct ServedObject {
  std::string name;
  BUSServerInterface* server;
};

// The server of the process. The server thread holds the mutex except while it waits for events and
// while a transaction runs. Any thread may use the other members with the mutex held. After a wait
// or a transaction the server thread looks up connections and names again by id.
class Server {
 public:
  // Returns the server, which is created on first use. It is never destroyed, because the order in
  // which objects are destroyed at exit is not defined.
  static Server& instance();

  // Returns whether the calling thread is the server thread.
  static bool onServerThread();

  // See BUS_server_complete() and BUS_server_ends().
  void begin(ServedObject& object);
  void end(ServedObject& object);

  // See ATSC_host_claim() and ATSC_host_serve().
  int claim(const std::string& name);
  void serve(const std::string& name);
  bool owns(const std::string& name);

  // Called at exit: waits for a running transaction and releases all names.
  void shutDown();
  bool ending() const { return ending_; }

  void add(Client& client);
  void remove(Client& client);

 private:
  struct Endpoint {
    std::unique_ptr<OwnedName> owned;
    uint64_t listenId;
    uint64_t lockId;
    bool serving;            // false: claimed only, callers wait
    bool listening = false;  // connections are accepted
    ServedObject* object = nullptr;
  };

  struct Connection {
    Fd socket;
    pid_t peer = 0;
    uint64_t endpoint = 0;  // listenId of the endpoint
    std::vector<char> input = std::vector<char>(kReceiveBuffer);
    size_t have = 0;           // bytes in `input`
    std::vector<char> output;  // rest of a reply; no request is read before it is sent
    size_t sent = 0;           // bytes of `output` that were sent
  };

  Server() = default;
  static Server*& current();
  // Lock and unlock around a fork: the analysis only sees one function at a time.
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
  bool forked_ GUARDED_BY(mutex_) = false;  // the parent's server, as copied to a child
  // True while no connection is accepted, because descriptors ran out.
  bool paused_ GUARDED_BY(mutex_) = false;
  std::chrono::steady_clock::time_point resumeAt_ GUARDED_BY(mutex_);
  Faults faults_ GUARDED_BY(mutex_);
  Fd epoll_;  // created before the thread starts
  Fd wake_ GUARDED_BY(mutex_);
  uint64_t lastId_ GUARDED_BY(mutex_) = 0;
  std::vector<std::unique_ptr<Endpoint>> endpoints_ GUARDED_BY(mutex_);
  std::unordered_map<uint64_t, Connection> connections_ GUARDED_BY(mutex_);
  // Connections that may have another whole request buffered.
  std::vector<uint64_t> ready_ GUARDED_BY(mutex_);
  std::vector<ServedObject*> objects_ GUARDED_BY(mutex_);  // after begin()
  ServedObject* running_ GUARDED_BY(mutex_) = nullptr;
  std::unordered_set<Client*> clients_ GUARDED_BY(mutex_);
  const Server* parent_ = nullptr;  // keeps the memory of the parent's server referenced

  // Used by the server thread only, and reused.
  BUSParam request_;
  BUSParam reply_;
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_SERVER_H_
