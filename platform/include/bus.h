// BUS: the set's inter-process call framework. The library uses the public members of these classes
// and the optional functions of bus_lifetime.h.
//
// A process serves a name by constructing a BUSServerInterface and reaches a served name through a
// BUSClientInterface. One transaction is one request parcel and one reply parcel.
//
// Names. Every process that loads the library constructs the server "atsc.qel.service.srv" before
// main(). Only the service process may serve this name, and only after ATSC_Service_db_init() has
// returned. The platform decides which process is the service process: by a function of its own
// that the process calls, by the program's name, ... In all other processes the server does nothing
// and logs nothing, and requests of a client go to the service process. A TV application constructs
// the server "atsc.qel.tv.srv" when it registers.
#ifndef ATSC_PLATFORM_BUS_H_
#define ATSC_PLATFORM_BUS_H_

#include <cstdint>
#include <memory>

// A typed sequence of items, written at the end and read from the front. Not thread-safe.
class BUSParam {
 public:
  BUSParam();
  ~BUSParam();
  BUSParam(const BUSParam&) = delete;
  BUSParam& operator=(const BUSParam&) = delete;

  // Appends a copy of a NUL-terminated text. Returns 0, or -1 when text is null or too long for a
  // parcel (nothing is written then).
  int writeCString(const char* text);

  // Reads the next item. Returns null, and does not consume the item, when it is not a text or when
  // there is no further item. The parcel owns the text, which is valid during the parcel's
  // lifetime.
  const char* readCString();

  // Appends a 32-bit integer. Returns 0.
  int writeInt32(int32_t value);

  // Reads the next integer and skips texts before it. Returns 0 when there is no further integer.
  int32_t readInt32();

 private:
  friend struct BUSPlatform;  // the platform's own access
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A served name. The framework calls onTransact() on its server thread: one thread per process, one
// transaction at a time.
class BUSServerInterface {
 public:
  // Registers the name; `description` is for diagnostics. The derived object is not yet
  // constructed: see bus_lifetime.h. While the server runs, the file "/tmp/.BUS." + name exists.
  // The library refuses a TV application while the file of "atsc.qel.tv.srv" exists. When a process
  // has died, the BUS removes its file, at the latest while the next process loads the library.
  BUSServerInterface(const char* name, const char* description);

  // Ends the registration after a running transaction has ended. The server of
  // "atsc.qel.service.srv" is a global of the library and is destroyed with the other globals. The
  // library never destroys the server of a TV application: when the process ends, the BUS ends that
  // server, before the globals that were constructed before the registration are destroyed.
  virtual ~BUSServerInterface();

  BUSServerInterface(const BUSServerInterface&) = delete;
  BUSServerInterface& operator=(const BUSServerInterface&) = delete;

  // Handles one request. `data` and `reply` are valid during the call; `reply` may be null when the
  // caller wants no reply. The framework defines the meaning of the returned value. Must not throw.
  virtual int onTransact(unsigned int code, BUSParam& data, BUSParam* reply,
                         unsigned int flags) = 0;

 private:
  friend struct BUSPlatform;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A client of a served name. The constructor does not connect.
class BUSClientInterface {
 public:
  BUSClientInterface(const char* name, const char* description);
  virtual ~BUSClientInterface();

  BUSClientInterface(const BUSClientInterface&) = delete;
  BUSClientInterface& operator=(const BUSClientInterface&) = delete;

  // Sends one request and waits for its reply, without a time limit. Any thread may call; callers
  // wait for each other. The request runs at most once. Returns 0, or -1 with an empty reply when
  // no process serves the name, the serving process dies, or the parcel cannot be transferred.
  virtual int transact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int flags);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

#endif  // ATSC_PLATFORM_BUS_H_
