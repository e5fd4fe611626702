// When a server of the BUS may be called: two functions that a BUS may have beside the classes of
// bus.h. The library calls each where it is there and does without where it is not.
//
// A BUS that has them serves a name only between the two: no transaction reaches an object that is
// not yet complete or no longer. One without them serves from the base class's constructor to its
// destructor. In an archive they belong into the object file of that constructor, as nothing draws
// in another one for a weak reference.
#ifndef ATSC_PLATFORM_BUS_LIFETIME_H_
#define ATSC_PLATFORM_BUS_LIFETIME_H_

#include <bus.h>

extern "C" {

// Last step of the most derived constructor: the object is complete, transactions may begin.
// Without the name, because another process serves it, the server stays silent; the log says so.
__attribute__((weak)) void BUS_server_complete(BUSServerInterface* server);

// First step of the most derived destructor: waits for a running transaction to end; none begins
// afterwards. Must not be called from within onTransact().
__attribute__((weak)) void BUS_server_ends(BUSServerInterface* server);
}

#endif  // ATSC_PLATFORM_BUS_LIFETIME_H_
