// JSON values as texts.
#include <json/json.h>

#include <cstring>

#include "atsc_text.h"

namespace atsc {

namespace {

// Precedes the two hexadecimal digits of a hidden byte. The writer has no escape for this character
// and does not change it.
constexpr char kHidden = '\x7F';
constexpr char kDigits[] = "0123456789ABCDEF";

// Hides the bytes of all texts that the writer would change. The writer reads texts as UTF-8 and
// escapes the characters: a pair of surrogates or a byte of another encoding would be lost.
void hideBytes(Json::Value& value) {
  if (value.isString()) {
    const char* text = value.asCString();
    std::string hidden;
    for (; *text != '\0'; ++text) {
      const auto byte = static_cast<unsigned char>(*text);
      if (byte < kHidden) {
        hidden += *text;
      } else {
        hidden += kHidden;
        hidden += kDigits[byte >> 4];
        hidden += kDigits[byte & 15];
      }
    }
    value = hidden;
  } else if (value.isArray() || value.isObject()) {
    for (Json::Value& member : value) hideBytes(member);
  }
}

}  // namespace

std::string jsonText(const Json::Value& value) {
  std::string text = Json::StyledWriter().write(value);
  // Most replies and callbacks have no byte that the writer changes.
  bool plain = text.find("\\u") == std::string::npos;
  for (const char byte : text) plain = plain && byte > '\0' && byte < kHidden;
  if (plain) return text;
  Json::Value copy = value;
  hideBytes(copy);
  const std::string hidden = Json::StyledWriter().write(copy);
  text.clear();
  const auto digit = [&](size_t i) { return strchr(kDigits, hidden[i]) - kDigits; };
  for (size_t i = 0; i < hidden.size(); ++i) {
    if (hidden[i] != kHidden) {
      text += hidden[i];
    } else {
      text += static_cast<char>(digit(i + 1) << 4 | digit(i + 2));
      i += 2;
    }
  }
  return text;
}

}  // namespace atsc
