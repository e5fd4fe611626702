#include "common/text.h"

#include <wctype.h>

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace apps {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t point;
  size_t length;  // in bytes, at least 1
};

bool isHighSurrogate(char32_t point) { return point >= 0xD800 && point < 0xDC00; }
bool isLowSurrogate(char32_t point) { return point >= 0xDC00 && point < 0xE000; }

// Decodes the first code point of a non-empty text, surrogates included (table in RFC 3629 section
// 3). For a malformed sequence, returns U+FFFD and the length of its first byte.
Decoded decodeOne(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {kReplacement, 1};
  char32_t point = lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {kReplacement, 1};
    point = point << 6 | (byte(i) & 0x3F);
  }
  const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
  if (overlong || point > 0x10FFFF) return {kReplacement, 1};
  return {point, length};
}

// Returns whether a character controls a terminal: control characters, line and paragraph
// separators, marks and overrides of the writing direction, byte order mark.
bool actsOnTerminal(char32_t point) {
  return point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0x61C || point == 0x200E ||
         point == 0x200F || (point >= 0x2028 && point <= 0x202E) ||
         (point >= 0x2066 && point <= 0x2069) || point == 0xFEFF;
}

}  // namespace

std::string validUtf8(std::string_view text) { return encodeUtf8(decodeUtf8(text)); }

std::u32string decodeUtf8(std::string_view text) {
  std::u32string points;
  for (size_t i = 0; i < text.size();) {
    auto [point, length] = decodeOne(text.substr(i));
    i += length;
    if (isHighSurrogate(point) && i < text.size()) {
      const Decoded low = decodeOne(text.substr(i));
      if (isLowSurrogate(low.point)) {
        point = 0x10000 + ((point - 0xD800) << 10) + (low.point - 0xDC00);
        i += low.length;
      }
    }
    points += isHighSurrogate(point) || isLowSurrogate(point) ? kReplacement : point;
  }
  return points;
}

std::string encodeUtf8(const std::u32string& points) {
  std::string text;
  const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
  for (const char32_t point : points) {
    if (point < 0x80) {
      add(point);
    } else if (point < 0x800) {
      add(0xC0 | point >> 6);
      add(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
      add(0xE0 | point >> 12);
      add(0x80 | (point >> 6 & 0x3F));
      add(0x80 | (point & 0x3F));
    } else {
      add(0xF0 | point >> 18);
      add(0x80 | (point >> 12 & 0x3F));
      add(0x80 | (point >> 6 & 0x3F));
      add(0x80 | (point & 0x3F));
    }
  }
  return text;
}

std::string printable(std::string_view text, bool keepLines) {
  std::u32string points = decodeUtf8(text);
  for (char32_t& point : points) {
    if (actsOnTerminal(point) && !(keepLines && point == U'\n')) point = kReplacement;
  }
  return encodeUtf8(points);
}

std::string oneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  return printable(line);
}

std::string plainName(std::string_view text) {
  std::u32string points = decodeUtf8(text);
  points.erase(std::remove_if(points.begin(), points.end(),
                              [](char32_t point) {
                                return point == U' ' || point == U'-' || point == U'.' ||
                                       point == U'\u00A0';
                              }),
               points.end());
  for (char32_t& point : points) {
    point = static_cast<char32_t>(towlower(static_cast<wint_t>(point)));
  }
  return encodeUtf8(points);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

}  // namespace apps
