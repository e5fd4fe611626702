#include "bytes.h"

#include <algorithm>

namespace psipmux {
namespace {

constexpr size_t kMaxSegmentBytes = 255;

void PutString(Bytes& out, const LanguageText& string) {
  constexpr uint8_t kNoCompression = 0x00;
  constexpr uint8_t kModeLatin1 = 0x00;
  constexpr uint8_t kModeUtf16 = 0x3F;
  const std::u16string& text = string.text;
  const bool wide =
      std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit > 0xFF; });
  const size_t longest = wide ? kMaxSegmentBytes / 2 : kMaxSegmentBytes;
  PutLanguage(out, string.language);
  const size_t number_segments = out.size();
  Put8(out, 0);
  size_t begin = 0;
  while (begin < text.size()) {
    size_t end = std::min(text.size(), begin + longest);
    // A surrogate pair stays in one segment.
    if (end < text.size() && text[end] >= 0xDC00 && text[end] <= 0xDFFF) --end;
    Put8(out, kNoCompression);
    Put8(out, wide ? kModeUtf16 : kModeLatin1);
    Put8(out, static_cast<unsigned>((end - begin) * (wide ? 2 : 1)));
    for (; begin < end; ++begin) {
      if (wide) Put8(out, text[begin] >> 8);
      Put8(out, text[begin] & 0xFF);
    }
    ++out[number_segments];
  }
}

}  // namespace

void Put8(Bytes& out, unsigned value) { out.push_back(static_cast<uint8_t>(value)); }

void Put16(Bytes& out, unsigned value) {
  Put8(out, value >> 8 & 0xFF);
  Put8(out, value & 0xFF);
}

void Put32(Bytes& out, uint32_t value) {
  Put16(out, value >> 16);
  Put16(out, value & 0xFFFF);
}

void Append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

void PutLanguage(Bytes& out, const std::string& language) {
  for (size_t i = 0; i < 3; ++i) {
    Put8(out, i < language.size() ? static_cast<uint8_t>(language[i]) : 0);
  }
}

void PutDescriptor(Bytes& out, uint8_t tag, const Bytes& body) {
  Put8(out, tag);
  Put8(out, static_cast<unsigned>(body.size()));
  Append(out, body);
}

void PutShortText(Bytes& out, const Text& text) {
  const Bytes string = text.empty() ? Bytes() : MultipleString(text);
  Put8(out, static_cast<unsigned>(string.size()));
  Append(out, string);
}

Bytes MultipleString(const Text& text) {
  Bytes out;
  Put8(out, static_cast<unsigned>(text.size()));
  for (const LanguageText& string : text) PutString(out, string);
  return out;
}

uint32_t Crc32(const Bytes& data) {
  uint32_t crc = 0xFFFFFFFFu;
  for (const uint8_t byte : data) {
    crc ^= static_cast<uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ ((crc >> 31) != 0 ? 0x04C11DB7u : 0);
  }
  return crc;
}

Bytes LongSection(uint8_t table_id, uint16_t extension, uint8_t version, size_t number, size_t last,
                  const Bytes& body) {
  constexpr uint8_t kFirstPsipTableId = 0xC7;
  constexpr uint8_t kLastPsipTableId = 0xD4;
  const bool psip = table_id >= kFirstPsipTableId && table_id <= kLastPsipTableId;
  Bytes out;
  Put8(out, table_id);
  const size_t length = kSectionHeaderSize - 3 + body.size() + kCrcSize;
  Put16(out, (psip ? 0xF000u : 0xB000u) | static_cast<unsigned>(length));
  Put16(out, extension);
  Put8(out, 0xC1u | static_cast<unsigned>(version) << 1);
  Put8(out, static_cast<unsigned>(number));
  Put8(out, static_cast<unsigned>(last));
  Append(out, body);
  Put32(out, Crc32(out));
  return out;
}

}  // namespace psipmux
