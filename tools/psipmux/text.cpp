#include "text.h"

#include <cstddef>
#include <cstdint>

namespace psipmux {

std::optional<std::u16string> utf8ToUtf16(const std::string& text) {
  std::u16string out;
  for (size_t i = 0; i < text.size();) {
    const uint8_t lead = static_cast<uint8_t>(text[i++]);
    if (lead < 0x80) {
      out.push_back(lead);
      continue;
    }
    const unsigned more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC0 || lead > 0xF7 || text.size() - i < more) return std::nullopt;
    uint32_t code = lead & (0x3Fu >> more);
    for (unsigned k = 0; k < more; ++k) {
      const uint8_t byte = static_cast<uint8_t>(text[i++]);
      if ((byte & 0xC0) != 0x80) return std::nullopt;
      code = code << 6 | (byte & 0x3Fu);
    }
    constexpr uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
      return std::nullopt;
    }
    if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 | code >> 10));
      code = 0xDC00 | (code & 0x3FF);
    }
    out.push_back(static_cast<char16_t>(code));
  }
  return out;
}

}  // namespace psipmux
