// Closed captions that the broadcast announces.
#ifndef ATSC_HOST_RECEIVER_TABLES_CAPTION_SERVICES_H_
#define ATSC_HOST_RECEIVER_TABLES_CAPTION_SERVICES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace atschost {

constexpr uint8_t kCaptionServiceTag = 0x86;
constexpr size_t kMaxCaptionServices = 16;

// A few bytes: the guide keeps them of every event.
struct CaptionService {
  std::array<char, 3> language{};  // ISO 639-2; zeros when absent
  uint8_t number = 0;              // digital: 1 to 63; line 21: the field, 1 or 2
  bool digital : 1;
  bool easyReader : 1;
  bool wide : 1;  // made for 16:9

  CaptionService() : digital(false), easyReader(false), wide(false) {}
  bool operator==(const CaptionService& other) const;
};

// caption_service_descriptor (A/65 6.9.2), what follows descriptor_length. Appends its services,
// each once, while the list has room for them. False when it does not end where it should; what
// came before counts.
bool readCaptionServices(const uint8_t* data, size_t size, std::vector<CaptionService>& services);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CAPTION_SERVICES_H_
