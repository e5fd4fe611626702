// Client side of the BUS.
#ifndef ATSC_HOST_BUS_CLIENT_H_
#define ATSC_HOST_BUS_CLIENT_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bus/log.h"
#include "bus/param.h"
#include "bus/socket.h"
#include "process/mutex.h"

namespace bus {

// One persistent connection to a BUS name. Connects on first use, and again after the peer has
// closed the connection. Any thread.
class Client {
 public:
  explicit Client(const char* name);

  // Ends waiting calls with -1 first.
  ~Client();

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // See BUSClientInterface::transact().
  int transact(uint32_t code, BUSParam& data, BUSParam* reply, uint32_t flags);

  // Aborts a call that the server thread is making. For the exit of the process, after
  // Server::ending() has become true.
  void endServerThreadCall();

  // Called in a forked child: drops the connection and the callers, which belong to the parent.
  void resetAfterFork() NO_THREAD_SAFETY_ANALYSIS;  // there is no other thread

 private:
  bool givenUp() const REQUIRES(mutex_);
  int exchange(size_t size, BUSPlatform::Parcel& request, BUSPlatform::Parcel* reply);
  bool connect();
  Fd openSocket(bool* busy);
  int receive(uint32_t code, BUSPlatform::Parcel* reply);
  int fail(const char* reason);
  void disconnect();

  const std::string name_;
  // True for callbacks: nobody waits for their replies. A thread that waits in recv() is also woken
  // when the peer takes the request from the socket, and the peer has to wake it before it goes on.
  const bool quiet_;
  atschost::Mutex mutex_;
  atschost::CondVar turn_;
  unsigned callers_ GUARDED_BY(mutex_) = 0;
  // True while a caller uses the connection; other callers wait on turn_.
  bool busy_ GUARDED_BY(mutex_) = false;
  bool closing_ GUARDED_BY(mutex_) = false;         // being destroyed
  bool onServerThread_ GUARDED_BY(mutex_) = false;  // the busy caller is the server thread

  // Used by the busy caller. socket_ is changed with the mutex held.
  Fd socket_;
  pid_t peer_ = 0;
  std::vector<char> input_;
  Faults faults_;
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_CLIENT_H_
