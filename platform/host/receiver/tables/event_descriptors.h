// Descriptors of an event in an EIT (A/65 6.9).
#ifndef ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_
#define ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_

#include "receiver/stream/byte_reader.h"
#include "receiver/tables/guide_tables.h"

namespace atschost {

// Takes content advisories, captions and genres over into the event. False when a descriptor
// passes its end; what was sound before it counts.
bool readEventDescriptors(ByteReader in, GuideEvent& event);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_EVENT_DESCRIPTORS_H_
