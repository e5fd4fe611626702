#include "receiver/tables/emergency_alert.h"

#include "aiec.h"
#include "receiver/stream/section.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

// Returns a field of plain characters.
std::string characters(ByteReader field) {
  return {reinterpret_cast<const char*>(field.data()), field.left()};
}

std::string textOf(ByteReader field) {
  return readText(field.data(), field.left(), AIEC_DESCRIPTION_SIZE);
}

}  // namespace

const char* readEmergencyAlert(const Section& section, EmergencyAlert& alert) {
  if (section.lastNumber != 0) return "emergency alert has several sections";
  ByteReader in = section.body();
  if (in.u8() != 0) return "emergency alert of an unknown protocol version";
  alert.sequence = section.version;
  alert.eventId = in.u16();
  alert.originator = characters(in.part(3));
  alert.eventCode = characters(in.part(in.u8()));
  alert.activationText = textOf(in.part(in.u8()));
  alert.timeRemaining = in.u8();
  alert.start = in.u32();
  alert.duration = in.u16();
  alert.priority = in.u16() & 0x0F;
  in.u16();  // details_OOB_source_ID
  const uint16_t major = in.u16() & 0x03FF;
  const uint16_t minor = in.u16() & 0x03FF;
  alert.hasDetailsChannel = major != 0 || minor != 0;
  in.u16();  // audio_OOB_source_ID
  alert.text = textOf(in.part(in.u16()));
  if (in.passedEnd()) return "emergency alert passes the end";
  if (alert.text.empty()) alert.text = alert.activationText;
  return nullptr;
}

}  // namespace atschost
