// Descriptors of an event in an EIT (A/65 6.9).
#ifndef ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_
#define ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_

#include "receiver/stream/byte_reader.h"
#include "receiver/tables/guide_tables.h"

namespace atschost {

// Adds content advisories, captions and genres to the event. Returns false if a descriptor passes
// its end; what was read before the fault is added.
bool readEventDescriptors(ByteReader in, GuideEvent& event);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_
