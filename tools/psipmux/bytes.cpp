#include "bytes.h"

#include <algorithm>

namespace psipmux {
namespace {

constexpr size_t kMaxSegmentBytes = 255;

void putString(Bytes& out, const LanguageText& string) {
  constexpr uint8_t kNoCompression = 0x00;
  constexpr uint8_t kModeLatin1 = 0x00;
  constexpr uint8_t kModeUtf16 = 0x3F;
  const std::u16string& text = string.text;
  const bool wide =
      std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit > 0xFF; });
  const size_t longest = wide ? kMaxSegmentBytes / 2 : kMaxSegmentBytes;
  putLanguage(out, string.language);
  const size_t numberSegments = out.size();
  put8(out, 0);
  size_t begin = 0;
  while (begin < text.size()) {
    size_t end = std::min(text.size(), begin + longest);
    // Keep surrogate pairs in one segment.
    if (end < text.size() && text[end] >= 0xDC00 && text[end] <= 0xDFFF) --end;
    put8(out, kNoCompression);
    put8(out, wide ? kModeUtf16 : kModeLatin1);
    put8(out, static_cast<unsigned>((end - begin) * (wide ? 2 : 1)));
    for (; begin < end; ++begin) {
      if (wide) put8(out, text[begin] >> 8);
      put8(out, text[begin] & 0xFF);
    }
    ++out[numberSegments];
  }
}

}  // namespace

void put8(Bytes& out, unsigned value) { out.push_back(static_cast<uint8_t>(value)); }

void put16(Bytes& out, unsigned value) {
  put8(out, value >> 8 & 0xFF);
  put8(out, value & 0xFF);
}

void put32(Bytes& out, uint32_t value) {
  put16(out, value >> 16);
  put16(out, value & 0xFFFF);
}

void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

void putLanguage(Bytes& out, const std::string& language) {
  for (size_t i = 0; i < 3; ++i) {
    put8(out, i < language.size() ? static_cast<uint8_t>(language[i]) : 0);
  }
}

void putDescriptor(Bytes& out, uint8_t tag, const Bytes& body) {
  put8(out, tag);
  put8(out, static_cast<unsigned>(body.size()));
  append(out, body);
}

void putShortText(Bytes& out, const Text& text) {
  const Bytes string = text.empty() ? Bytes() : multipleString(text);
  put8(out, static_cast<unsigned>(string.size()));
  append(out, string);
}

Bytes multipleString(const Text& text) {
  Bytes out;
  put8(out, static_cast<unsigned>(text.size()));
  for (const LanguageText& string : text) putString(out, string);
  return out;
}

uint32_t crc32(const Bytes& data) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const uint8_t byte : data) {
    crc ^= static_cast<uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ ((crc >> 31) != 0 ? 0x04C11DB7u : 0);
  }
  return crc;
}

Bytes longSection(uint8_t tableId, uint16_t extension, uint8_t version, size_t number, size_t last,
                  const Bytes& body) {
  constexpr uint8_t kFirstPsipTableId = 0xC7;
  constexpr uint8_t kLastPsipTableId = 0xD4;
  const bool psip = tableId >= kFirstPsipTableId && tableId <= kLastPsipTableId;
  Bytes out;
  put8(out, tableId);
  const size_t length = kSectionHeaderSize - 3 + body.size() + kCrcSize;
  put16(out, (psip ? 0xF000u : 0xB000u) | static_cast<unsigned>(length));
  put16(out, extension);
  put8(out, 0xC1u | static_cast<unsigned>(version) << 1);
  put8(out, static_cast<unsigned>(number));
  put8(out, static_cast<unsigned>(last));
  append(out, body);
  put32(out, crc32(out));
  return out;
}

}  // namespace psipmux
