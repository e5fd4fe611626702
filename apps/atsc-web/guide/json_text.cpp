#include "guide/json_text.h"

#include <array>
#include <cstdio>

namespace web {

JsonText& JsonText::open(char bracket) {
  separate();
  text_ += bracket;
  return *this;
}

JsonText& JsonText::close(char bracket) {
  text_ += bracket;
  return *this;
}

JsonText& JsonText::key(std::string_view name) {
  separate();
  quote(name);
  text_ += ':';
  return *this;
}

JsonText& JsonText::text(std::string_view value) {
  separate();
  quote(value);
  return *this;
}

JsonText& JsonText::number(int64_t value) { return raw(std::to_string(value)); }

JsonText& JsonText::raw(std::string_view json) {
  separate();
  text_ += json;
  return *this;
}

// A text ends with its quote, so these characters at the end are those of the structure.
void JsonText::separate() {
  if (text_.empty()) return;
  const char last = text_.back();
  if (last != '{' && last != '[' && last != ':') text_ += ',';
}

void JsonText::quote(std::string_view value) {
  text_ += '"';
  for (const char c : value) {
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      std::array<char, 8> escaped{};
      snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(c));
      text_ += escaped.data();
    } else {
      text_ += c;
    }
  }
  text_ += '"';
}

}  // namespace web
