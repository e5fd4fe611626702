#include "receiver/tables/service_name.h"

#include <algorithm>
#include <optional>

#include "receiver/stream/transport.h"

namespace atschost {
namespace {

constexpr size_t kMaxUnits = 64;

constexpr uint32_t kReplacementCharacter = 0xFFFD;

// Reads a code point and moves past it; returns none if the bytes are not UTF-8.
std::optional<uint32_t> nextUtf8(const uint8_t*& at, const uint8_t* end) {
  const uint8_t lead = *at++;
  if (lead < 0x80) return lead;
  const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC2 || lead > 0xF4 || end - at < more) return std::nullopt;
  uint32_t codePoint = lead & (0x3F >> more);
  for (int i = 0; i < more; ++i, ++at) {
    if ((*at & 0xC0) != 0x80) return std::nullopt;
    codePoint = codePoint << 6 | (*at & 0x3F);
  }
  const bool overlong = codePoint < (more == 3 ? 0x10000u : more == 2 ? 0x800u : 0x80u);
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (overlong || surrogate || codePoint > 0x10FFFF) return std::nullopt;
  return codePoint;
}

bool isUtf8(const uint8_t* at, const uint8_t* end) {
  while (at < end)
    if (!nextUtf8(at, end)) return false;
  return true;
}

// Reads a code point of UTF-16BE; replaces half a surrogate pair.
uint32_t nextUtf16(const uint8_t*& at, const uint8_t* end) {
  const uint32_t unit = read16(at);
  at += 2;
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || end - at < 2) return kReplacementCharacter;
  const uint32_t low = read16(at);
  if (low < 0xDC00 || low > 0xDFFF) return kReplacementCharacter;
  at += 2;
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

// Appends a code point. Returns false if the name has no room for it.
bool append(std::string& name, uint32_t codePoint) {
  const auto add = [&](uint32_t unit) {
    name += static_cast<char>(unit >> 8);
    name += static_cast<char>(unit);
  };
  const size_t units = codePoint > 0xFFFF ? 2 : 1;
  if (name.size() / 2 + units > kMaxUnits) return false;
  if (units == 1) {
    add(codePoint);
  } else {
    add(0xD800 + ((codePoint - 0x10000) >> 10));
    add(0xDC00 + (codePoint & 0x3FF));
  }
  return true;
}

}  // namespace

std::string serviceName(const multiple_lang_t& text) {
  std::string name;
  if (!text.text) return name;
  const uint8_t* at = text.text;
  const uint8_t* end = at + text.length;
  if (text.encoding == AI_TEXT_UTF16BE) {
    while (end - at >= 2) {
      const uint32_t codePoint = nextUtf16(at, end);
      if (codePoint == 0 || !append(name, codePoint)) break;
    }
    return name;
  }
  end = std::find(at, end, 0);
  const bool utf8 = isUtf8(at, end);
  while (at < end && append(name, utf8 ? *nextUtf8(at, end) : *at++)) {
  }
  return name;
}

}  // namespace atschost
