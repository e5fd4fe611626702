#include "terminal/text.h"

#include <wchar.h>

#include <algorithm>

namespace apps::tv {
namespace {

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

size_t displayWidth(std::string_view text) { return widthOf(decodeUtf8(text)); }

std::string cut(std::string_view text, size_t width) {
  std::u32string points = decodeUtf8(text);
  if (widthOf(points) <= width) return encodeUtf8(points);
  if (width == 0) return "";
  points.resize(fitting(points, 0, width - 1));
  return encodeUtf8(points + U'…');
}

std::string fitted(std::string_view text, size_t width) {
  std::string line = cut(text, width);
  return line.append(width - std::min(width, displayWidth(line)), ' ');
}

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::vector<std::string> wrapped(std::string_view text, size_t width) {
  const std::u32string points = decodeUtf8(text);
  std::vector<std::string> lines;
  for (size_t start = 0; start < points.size();) {
    // Takes at least one character, even if the column is too narrow for it.
    const size_t limit = std::max(fitting(points, start, width), start + 1);
    const size_t blank = limit < points.size() ? points.rfind(U' ', limit) : limit;
    const size_t end = blank == std::u32string::npos || blank <= start ? limit : blank;
    const size_t last = points.find_last_not_of(U' ', end - 1);
    if (last != std::u32string::npos && last >= start) {
      lines.push_back(encodeUtf8(points.substr(start, last + 1 - start)));
    }
    start = points.find_first_not_of(U' ', end);
  }
  return lines;
}

}  // namespace apps::tv
