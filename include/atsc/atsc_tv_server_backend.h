// The interface that a TV application implements to receive callback messages.
#ifndef ATSC_ATSC_TV_SERVER_BACKEND_H_
#define ATSC_ATSC_TV_SERVER_BACKEND_H_

#pragma GCC visibility push(default)

namespace ATSCBUS {

// Derive a class and register its object with ATSC_RegisterTVServerBackend(). The base class
// returns -1 for every message and prints a notice to standard output.
class ATSCTVServerBackend {
 public:
  virtual ~ATSCTVServerBackend();

  // Receives one callback message: a JSON text with "class" "CALLBACK" and "cbtype". Called on the
  // BUS server thread, one message at a time, while the service waits. Must not throw. The caller
  // releases a reply text in `*result` with free(). Returns the result for the sender: 0, or -1.
  virtual int jsonCommand(const char* command, char** result);
};

}  // namespace ATSCBUS

#pragma GCC visibility pop

#endif  // ATSC_ATSC_TV_SERVER_BACKEND_H_
