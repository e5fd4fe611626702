// Checks of the tables that libdvbpsi decodes.
#ifndef ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_
#define ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_

#include "receiver/stream/section.h"

namespace atschost {

// Checks the loops and descriptors of a section of a PAT, PMT or VCT, so that its decoder can rely
// on every length in it. Returns null if they and the header are sound, else the fault.
const char* sectionFault(const Section& section);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_
