// Checks of the tables that libdvbpsi decodes.
#ifndef ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_
#define ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_

#include <cstddef>
#include <cstdint>

namespace atschost {

// Checks header, CRC, loops and descriptors of a section of a PAT, PMT or VCT, so that its decoder
// can rely on every length in it. Returns null if the section is sound, else the fault.
const char* sectionFault(const uint8_t* section, size_t size);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_SECTION_FAULT_H_
