// The interface that a TV application implements to receive callback messages.
#ifndef ATSC_ATSC_TV_SERVER_BACKEND_H_
#define ATSC_ATSC_TV_SERVER_BACKEND_H_

#pragma GCC visibility push(default)

namespace ATSCBUS {

// Derive from it and register the object with ATSC_RegisterTVServerBackend(). The class itself
// answers every message with -1 and a notice on standard output.
class ATSCTVServerBackend {
 public:
  virtual ~ATSCTVServerBackend();

  // Receives one callback message: a JSON text with "class" "CALLBACK" and "cbtype". Called on the
  // BUS server thread, one message at a time, while the service waits; must not throw. A reply text
  // put into `*result` must come from malloc's family and is released by the caller. Returns the
  // result for the sender: 0, or -1.
  virtual int jsonCommand(const char* command, char** result);
};

}  // namespace ATSCBUS

#pragma GCC visibility pop

#endif  // ATSC_ATSC_TV_SERVER_BACKEND_H_
