#include "receiver/tables/caption_services.h"

#include <algorithm>
#include <tuple>

#include "receiver/stream/byte_reader.h"
#include "receiver/tables/descriptors.h"

namespace atschost {
namespace {

CaptionService readService(ByteReader entry) {
  CaptionService service;
  copyLanguage(entry.part(service.language.size()).data(), service.language.data());
  const uint8_t kind = entry.u8();
  service.digital = kind & 0x80;
  service.number = static_cast<uint8_t>(service.digital ? kind & 0x3F : 1 + (kind & 1));
  const uint8_t flags = entry.u8();
  service.easyReader = flags & 0x80;
  service.wide = flags & 0x40;
  return service;
}

}  // namespace

bool CaptionService::operator==(const CaptionService& other) const {
  const auto tie = [](const CaptionService& s) {
    return std::tuple(s.language, s.number, s.digital, s.easyReader, s.wide);
  };
  return tie(*this) == tie(other);
}

bool readCaptionServices(const uint8_t* data, size_t size, std::vector<CaptionService>& services) {
  constexpr size_t kServiceSize = 6;
  ByteReader in(data, size);
  for (unsigned count = in.u8() & 0x1F; count > 0 && !in.passedEnd(); --count) {
    const ByteReader entry = in.part(kServiceSize);
    if (entry.left() == 0) break;
    const CaptionService service = readService(entry);
    if (service.number == 0 || services.size() >= kMaxCaptionServices) continue;
    if (std::find(services.begin(), services.end(), service) == services.end())
      services.push_back(service);
  }
  return !in.passedEnd();
}

}  // namespace atschost
