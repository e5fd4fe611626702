// BUS: the set's inter-process call framework. What is public here is all that the library uses;
// what a BUS may have beside it stands in bus_lifetime.h.
//
// A process serves a name by constructing a BUSServerInterface and reaches a served name through a
// BUSClientInterface. One transaction is one request parcel and one reply parcel.
//
// Names. Every process that loads the library constructs the server "atsc.qel.service.srv", before
// main(). Only one process may answer to it, the service process, and that not before
// ATSC_Service_db_init() has returned; which process this is the platform decides (by a function of
// its own that the process calls, by the program's name, ...). All others leave the name alone,
// without a word, and what a client in such a process sends goes to the service process. A TV
// application constructs the server "atsc.qel.tv.srv" when it registers.
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

  // The next item when it is a text, else null (also past the end); null consumes nothing. The text
  // belongs to the parcel and lives as long as it.
  const char* readCString();

  // Appends a 32-bit integer. Returns 0.
  int writeInt32(int32_t value);

  // The next integer; unread texts in front of it are skipped. 0 past the end.
  int32_t readInt32();

 private:
  friend struct BUSPlatform;  // the platform's own access
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A served name. The framework calls onTransact() on its server thread: one thread a process, one
// transaction at a time.
class BUSServerInterface {
 public:
  // Registers the name; `description` is for diagnostics. The derived object is still to be
  // constructed: see bus_lifetime.h. While the server runs, the file "/tmp/.BUS." + name exists. A
  // TV application is refused while that of "atsc.qel.tv.srv" exists: what a process left that died
  // has to be removed before another one looks, at the latest when it has loaded the library.
  BUSServerInterface(const char* name, const char* description);

  // Ends the registration; a running transaction ends first. A TV application's server is never
  // destroyed: when the process ends, the BUS ends it by itself, before the globals that are older
  // than the registration are destroyed. So it does with the service's.
  virtual ~BUSServerInterface();

  BUSServerInterface(const BUSServerInterface&) = delete;
  BUSServerInterface& operator=(const BUSServerInterface&) = delete;

  // Handles one request. `data` and `reply` are valid during the call; `reply` may be null when the
  // caller wants none. The returned value is the framework's affair; must not throw.
  virtual int onTransact(unsigned int code, BUSParam& data, BUSParam* reply,
                         unsigned int flags) = 0;

 private:
  friend struct BUSPlatform;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A reachable name. Construction connects nothing.
class BUSClientInterface {
 public:
  BUSClientInterface(const char* name, const char* description);
  virtual ~BUSClientInterface();

  BUSClientInterface(const BUSClientInterface&) = delete;
  BUSClientInterface& operator=(const BUSClientInterface&) = delete;

  // Sends one request and waits for its reply, however long the server takes; any thread may call,
  // callers wait for each other. The request runs at most once. Returns 0, or -1 with an empty
  // reply when nobody serves the name, the peer dies, or the parcel cannot be carried.
  virtual int transact(unsigned int code, BUSParam& data, BUSParam* reply, unsigned int flags);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

#endif  // ATSC_PLATFORM_BUS_H_
