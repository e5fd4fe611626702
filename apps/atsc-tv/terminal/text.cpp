#include "terminal/text.h"

#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <sstream>

namespace tv {
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

std::u32string decode(std::string_view text) {
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

std::string encode(const std::u32string& points) {
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

// Returns whether a character controls a terminal: control characters, line and paragraph
// separators, marks and overrides of the writing direction, byte order mark.
bool actsOnTerminal(char32_t point) {
  return point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0x61C || point == 0x200E ||
         point == 0x200F || (point >= 0x2028 && point <= 0x202E) ||
         (point >= 0x2066 && point <= 0x2069) || point == 0xFEFF;
}

size_t widthOf(char32_t point) {
  // wcwidth() returns -1 for a character that the locale does not know.
  const int columns = wcwidth(static_cast<wchar_t>(point));
  return columns < 0 ? 1 : static_cast<size_t>(columns);
}

size_t widthOf(const std::u32string& points) {
  size_t width = 0;
  for (const char32_t point : points) width += widthOf(point);
  return width;
}

// Returns the end of the longest part that begins at `start` and takes at most `width` columns.
size_t fitting(const std::u32string& points, size_t start, size_t width) {
  size_t end = start;
  for (size_t used = 0; end < points.size(); ++end) {
    used += widthOf(points[end]);
    if (used > width) break;
  }
  return end;
}

}  // namespace

std::string validUtf8(std::string_view text) { return encode(decode(text)); }

std::string printable(std::string_view text, bool keepLines) {
  std::u32string points = decode(text);
  for (char32_t& point : points) {
    if (actsOnTerminal(point) && !(keepLines && point == U'\n')) point = kReplacement;
  }
  return encode(points);
}

size_t displayWidth(std::string_view text) { return widthOf(decode(text)); }

std::string oneLine(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  }
  return printable(line);
}

std::string cut(std::string_view text, size_t width) {
  std::u32string points = decode(text);
  if (widthOf(points) <= width) return encode(points);
  if (width == 0) return "";
  points.resize(fitting(points, 0, width - 1));
  return encode(points + U'…');
}

std::string fitted(std::string_view text, size_t width) {
  std::string line = cut(text, width);
  return line.append(width - std::min(width, displayWidth(line)), ' ');
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string plainName(std::string_view text) {
  std::u32string points = decode(text);
  points.erase(std::remove_if(points.begin(), points.end(),
                              [](char32_t point) {
                                return point == U' ' || point == U'-' || point == U'.' ||
                                       point == U'\u00A0';
                              }),
               points.end());
  for (char32_t& point : points) {
    point = static_cast<char32_t>(towlower(static_cast<wint_t>(point)));
  }
  return encode(points);
}

std::vector<std::string> wrapped(std::string_view text, size_t width) {
  const std::u32string points = decode(text);
  std::vector<std::string> lines;
  for (size_t start = 0; start < points.size();) {
    // Takes at least one character, even if the column is too narrow for it.
    const size_t limit = std::max(fitting(points, start, width), start + 1);
    const size_t blank = limit < points.size() ? points.rfind(U' ', limit) : limit;
    const size_t end = blank == std::u32string::npos || blank <= start ? limit : blank;
    const size_t last = points.find_last_not_of(U' ', end - 1);
    if (last != std::u32string::npos && last >= start) {
      lines.push_back(encode(points.substr(start, last + 1 - start)));
    }
    start = points.find_first_not_of(U' ', end);
  }
  return lines;
}

}  // namespace tv
