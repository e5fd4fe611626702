#include "receiver/tables/section_fault.h"

#include "receiver/stream/transport.h"
#include "receiver/tables/table_ids.h"

namespace atschost {
namespace {

constexpr size_t kMaxPsiSize = 1024;  // of a PAT or PMT section

// Whether descriptors fill `size` bytes exactly.
bool descriptorsFit(const uint8_t* bytes, size_t size) {
  while (size > 0) {
    if (size < 2 || size < 2u + bytes[1]) return false;
    const size_t length = 2u + bytes[1];
    bytes += length;
    size -= length;
  }
  return true;
}

constexpr size_t kToTheEnd = SIZE_MAX;

// Walks `count` entries (kToTheEnd: as many as there are) of `fixed` bytes, the last two of which
// hold the length of the descriptors that follow. Returns the bytes used; SIZE_MAX when an entry
// does not fit.
size_t walkEntries(const uint8_t* bytes, size_t size, size_t fixed, uint16_t lengthMask,
                   size_t count) {
  size_t at = 0;
  for (size_t i = 0; count == kToTheEnd ? at < size : i < count; ++i) {
    if (size - at < fixed) return SIZE_MAX;
    const size_t length = read16(bytes + at + fixed - 2) & lengthMask;
    at += fixed;
    if (size - at < length || !descriptorsFit(bytes + at, length)) return SIZE_MAX;
    at += length;
  }
  return at;
}

const char* pmtFault(const uint8_t* body, size_t size) {
  const size_t info = walkEntries(body, size, 4, 0x0FFF, 1);  // PCR_PID, program_info_length
  if (info == SIZE_MAX) return "PMT program descriptors pass the end";
  if (walkEntries(body + info, size - info, 5, 0x0FFF, kToTheEnd) == SIZE_MAX)
    return "PMT elementary stream passes the end";
  return nullptr;
}

const char* vctFault(const uint8_t* body, size_t size) {
  if (size < 4) return "VCT is too short";
  if (body[0] != 0) return "VCT of an unknown protocol version";
  const size_t channels = walkEntries(body + 2, size - 4, 32, 0x03FF, body[1]);
  if (channels == SIZE_MAX) return "VCT channel passes the end";
  const uint8_t* additional = body + 2 + channels;
  const size_t rest = size - 2 - channels;
  if (walkEntries(additional, rest, 2, 0x03FF, 1) != rest)
    return "VCT additional descriptors do not end with the section";
  return nullptr;
}

}  // namespace

const char* sectionFault(const Section& section) {
  if (section.fault) return section.fault;
  const ByteReader body = section.body();
  switch (section.tableId) {
    case kPatId:
      if (section.size > kMaxPsiSize) return "PAT section is too long";
      return body.left() % 4 == 0 ? nullptr : "PAT ends within a program";
    case kPmtId:
      if (section.size > kMaxPsiSize) return "PMT section is too long";
      if (section.lastNumber != 0) return "PMT has several sections";
      return pmtFault(body.data(), body.left());
    case kTerrestrialVctId:
    case kCableVctId:
      return vctFault(body.data(), body.left());
    default:
      return "not a table of the service list";
  }
}

}  // namespace atschost
