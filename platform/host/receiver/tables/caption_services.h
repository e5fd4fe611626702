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

// Small, since the guide keeps the services of every event.
struct CaptionService {
  std::array<char, 3> language{};  // ISO 639-2; zeros when absent
  uint8_t number = 0;              // digital: 1 to 63; line 21: the field, 1 or 2
  bool digital : 1;
  bool easyReader : 1;
  bool wide : 1;  // made for 16:9 pictures

  CaptionService() : digital(false), easyReader(false), wide(false) {}
  bool operator==(const CaptionService& other) const;
};

// Reads the content of a caption_service_descriptor (A/65 6.9.2), without tag and length. Appends
// its services to the list, each once, up to kMaxCaptionServices. Returns false if a service passes
// the end; the services before it are appended.
bool readCaptionServices(const uint8_t* data, size_t size, std::vector<CaptionService>& services);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_CAPTION_SERVICES_H_
