// The cable emergency alert (SCTE 18).
#ifndef ATSC_HOST_RECEIVER_TABLES_EMERGENCY_ALERT_H_
#define ATSC_HOST_RECEIVER_TABLES_EMERGENCY_ALERT_H_

#include <cstdint>
#include <string>

namespace atschost {

struct Section;

// Texts are UTF-16BE.
struct EmergencyAlert {
  uint8_t sequence = 0;  // sequence_number, 5 bits
  uint16_t eventId = 0;
  std::string originator;      // EAS_originator_code, 3 characters
  std::string eventCode;       // EAS_event_code
  std::string activationText;  // nature_of_activation_text
  std::string text;            // alert_text; activationText if alert_text is empty
  uint8_t timeRemaining = 0;   // seconds; 0 means indefinite
  uint32_t start = 0;          // event_start_time, GPS seconds; 0: at once
  uint16_t duration = 0;       // event_duration, minutes; 0: indefinite
  uint8_t priority = 0;        // alert_priority, 0 to 15
  bool hasDetailsChannel = false;
};

// Reads an alert with a sound header. Returns null, or the fault for which the alert is of no use.
const char* readEmergencyAlert(const Section& section, EmergencyAlert& alert);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_EMERGENCY_ALERT_H_
