// The calling end of the BUS.
#ifndef ATSC_HOST_BUS_CLIENT_H_
#define ATSC_HOST_BUS_CLIENT_H_

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "bus/log.h"
#include "bus/param.h"
#include "bus/socket.h"

namespace bus {

// One persistent connection to a name, made when it is first needed and made anew when the peer has
// gone. Any thread.
class Client {
 public:
  explicit Client(const char* name);

  // A call that still waits ends with -1 first.
  ~Client();

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // See BUSClientInterface::transact().
  int transact(uint32_t code, BUSParam& data, BUSParam* reply, uint32_t flags);

  // Ends a call that the server thread makes; for the exit of the process, after
  // Server::ending() has become true.
  void endServerThreadCall();

  // In a forked child: the connection and its callers are the parent's.
  void resetAfterFork();

 private:
  bool givenUp() const;
  int exchange(size_t size, BUSPlatform::Parcel& request, BUSPlatform::Parcel* reply);
  bool connect();
  Fd openSocket(bool* busy);
  int receive(uint32_t code, BUSPlatform::Parcel* reply);
  int fail(const char* reason);
  void disconnect();

  const std::string name_;
  std::mutex mutex_;
  std::condition_variable turn_;
  unsigned callers_ = 0;
  bool busy_ = false;            // a caller owns the connection; the others wait for their turn
  bool closing_ = false;         // being destroyed
  bool onServerThread_ = false;  // the busy caller is the server thread
  Fd socket_;                    // changed by the busy caller only, with the mutex held
  pid_t peer_ = 0;
  std::vector<char> input_;
  Faults faults_;  // of the busy caller
};

}  // namespace bus

#endif  // ATSC_HOST_BUS_CLIENT_H_
