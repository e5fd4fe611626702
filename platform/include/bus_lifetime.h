// Lifetime of a BUS server: two optional functions of a BUS. The library calls each function that
// the BUS defines.
//
// A BUS with these functions serves a name only between the calls of BUS_server_complete() and
// BUS_server_ends(): no transaction reaches an object that is not yet complete or no longer
// complete. A BUS without them serves a name from the base class's constructor to its destructor.
// In a static library, define them in the object file of that constructor: the linker does not
// extract another object file for a weak reference.
#ifndef ATSC_PLATFORM_BUS_LIFETIME_H_
#define ATSC_PLATFORM_BUS_LIFETIME_H_

#include <bus.h>

extern "C" {

// Starts the transactions. Called as the last step of the most derived constructor: the object is
// complete. When another process serves the name, the server gets no transactions and the BUS logs
// that.
__attribute__((weak)) void BUS_server_complete(BUSServerInterface* server);

// Stops the transactions and waits for a running transaction to end. Called as the first step of
// the most derived destructor. Must not be called from within onTransact().
__attribute__((weak)) void BUS_server_ends(BUSServerInterface* server);
}

#endif  // ATSC_PLATFORM_BUS_LIFETIME_H_
