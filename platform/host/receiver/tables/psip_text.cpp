#include "receiver/tables/psip_text.h"

#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "receiver/stream/byte_reader.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/huffman_tables.h"

namespace atschost {
namespace {

constexpr uint16_t kReplacementUnit = 0xFFFD;
constexpr uint8_t kModeScsu = 0x3E;
constexpr uint8_t kModeUtf16 = 0x3F;

bool isHighSurrogate(uint32_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isLowSurrogate(uint32_t unit) { return (unit & 0xFC00) == 0xDC00; }

// Builds a text of bounded length. Replaces halves of surrogate pairs without their other half.
class TextBuilder {
 public:
  explicit TextBuilder(size_t maxBytes) : maxBytes_(maxBytes) {}

  void addUnit(uint16_t unit) {
    const bool completes = high_ && isLowSurrogate(unit);
    if (completes) {
      add(*std::exchange(high_, std::nullopt), unit);
      return;
    }
    if (std::exchange(high_, std::nullopt)) add(kReplacementUnit);
    if (isHighSurrogate(unit)) {
      high_ = unit;
    } else if (isLowSurrogate(unit)) {
      add(kReplacementUnit);
    } else if (unit != 0) {
      add(unit);
    }
  }

  void addCodePoint(uint32_t codePoint) {
    if (codePoint > 0x10FFFF) {
      addUnit(kReplacementUnit);
    } else if (codePoint > 0xFFFF) {
      addUnit(static_cast<uint16_t>(0xD800 + ((codePoint - 0x10000) >> 10)));
      addUnit(static_cast<uint16_t>(0xDC00 + (codePoint & 0x3FF)));
    } else {
      addUnit(static_cast<uint16_t>(codePoint));
    }
  }

  bool full() const { return full_; }

  std::string finish() {
    if (std::exchange(high_, std::nullopt)) add(kReplacementUnit);
    return std::move(text_);
  }

 private:
  template <typename... Units>
  void add(Units... units) {
    full_ = full_ || text_.size() + 2 * sizeof...(units) > maxBytes_;
    if (full_) return;
    for (const uint16_t unit : {units...}) {
      text_ += static_cast<char>(unit >> 8);
      text_ += static_cast<char>(unit);
    }
  }

  const size_t maxBytes_;
  std::string text_;
  std::optional<uint16_t> high_;
  bool full_ = false;
};

// Huffman coding of A/65 Annex C. A string ends with its terminator or with the segment.
void decodeHuffman(const HuffmanTrees& trees, const uint8_t* data, size_t size, TextBuilder& text) {
  const size_t bits = 8 * size;
  size_t at = 0;
  const auto bit = [&] {
    const bool set = data[at / 8] >> (7 - at % 8) & 1;
    ++at;
    return set;
  };
  const auto literal = [&]() -> uint8_t {
    unsigned value = 0;
    for (int i = 0; i < 8; ++i) value = value << 1 | (at < bits ? bit() : 0);
    return static_cast<uint8_t>(value);
  };
  constexpr uint8_t kEscape = 27;
  for (uint8_t character = 0; at < bits && !text.full();) {
    if (character & 0x80) {  // has no tree: the next character is not compressed
      character = literal();
    } else {
      const size_t tree = read16(trees.bytes + size_t{2} * character);
      uint8_t branch = 0;
      do {
        if (at == bits) return;
        const size_t node = tree + size_t{2} * branch + (bit() ? 1 : 0);
        if (node >= trees.size) return;
        branch = trees.bytes[node];
      } while (!(branch & 0x80));
      character = branch & 0x7F;
      if (character == kEscape) character = literal();
    }
    if (character == 0) return;
    text.addUnit(character);
  }
}

// Standard Compression Scheme for Unicode (Unicode Technical Standard 6).
class ScsuDecoder {
 public:
  ScsuDecoder(const uint8_t* data, size_t size, TextBuilder& text) : in_(data, size), text_(text) {}

  void decode() {
    while (in_.left() > 0 && !text_.full()) {
      const uint8_t byte = in_.u8();
      if (!(unicode_ ? unicodeMode(byte) : singleByteMode(byte))) return;
    }
  }

 private:
  // Both return false for a code without meaning; the rest of the text cannot be decoded.
  bool singleByteMode(uint8_t byte) {
    if (byte >= 0x80) {
      text_.addCodePoint(dynamic_[active_] + byte - 0x80);
    } else if (byte >= 0x20 || byte == 0x00 || byte == 0x09 || byte == 0x0A || byte == 0x0D) {
      text_.addUnit(byte);
    } else if (byte <= 0x08) {  // SQn
      const size_t window = byte - 0x01u;
      const uint8_t quoted = in_.u8();
      if (in_.passedEnd()) return false;
      text_.addCodePoint(quoted < 0x80 ? kStatic[window] + quoted
                                       : dynamic_[window] + quoted - 0x80);
    } else if (byte >= 0x18) {  // SDn
      return define(byte - 0x18u);
    } else if (byte >= 0x10) {  // SCn
      active_ = byte - 0x10u;
    } else if (byte == 0x0B) {  // SDX
      return defineExtended();
    } else if (byte == 0x0E) {  // SQU
      return quote();
    } else if (byte == 0x0F) {  // SCU
      unicode_ = true;
    } else {
      return false;
    }
    return true;
  }

  bool unicodeMode(uint8_t byte) {
    if (byte < 0xE0 || byte > 0xF2) {
      const uint8_t low = in_.u8();
      if (in_.passedEnd()) return false;
      text_.addUnit(static_cast<uint16_t>(byte << 8 | low));
      return true;
    }
    if (byte == 0xF0) return quote();  // UQU
    unicode_ = false;
    if (byte == 0xF1) return defineExtended();      // UDX
    if (byte >= 0xE8) return define(byte - 0xE8u);  // UDn; 0xF2 is reserved
    active_ = byte - 0xE0u;                         // UCn
    return true;
  }

  bool quote() {
    const uint16_t unit = in_.u16();
    if (in_.passedEnd()) return false;
    text_.addUnit(unit);
    return true;
  }

  bool define(size_t window) {
    const uint8_t index = in_.u8();
    if (in_.passedEnd() || window >= dynamic_.size()) return false;
    constexpr std::array<uint32_t, 7> kSpecial = {0x00C0, 0x0250, 0x0370, 0x0530,
                                                  0x3040, 0x30A0, 0xFF60};
    uint32_t offset = 0;
    if (index >= 0xF9) {
      offset = kSpecial[index - 0xF9u];
    } else if (index >= 0x01 && index <= 0x67) {
      offset = index * 0x80u;
    } else if (index >= 0x68 && index <= 0xA7) {
      offset = index * 0x80u + 0xAC00;
    } else {
      return false;
    }
    dynamic_[window] = offset;
    active_ = window;
    return true;
  }

  bool defineExtended() {
    const uint16_t field = in_.u16();
    if (in_.passedEnd()) return false;
    active_ = field >> 13;
    dynamic_[active_] = 0x10000 + (field & 0x1FFFu) * 0x80;
    return true;
  }

  static constexpr std::array<uint32_t, 8> kStatic = {0x0000, 0x0080, 0x0100, 0x0300,
                                                      0x2000, 0x2080, 0x2100, 0x3000};
  ByteReader in_;
  TextBuilder& text_;
  std::array<uint32_t, 8> dynamic_ = {0x0080, 0x00C0, 0x0400, 0x0600,
                                      0x0900, 0x3040, 0x30A0, 0xFF00};
  size_t active_ = 0;
  bool unicode_ = false;
};

// Modes that give the upper byte of every character (A/65 table 6.41).
bool selectsPage(uint8_t mode) {
  return mode <= 0x06 || (mode >= 0x09 && mode <= 0x10) || (mode >= 0x20 && mode <= 0x27) ||
         (mode >= 0x30 && mode <= 0x33);
}

void decodeSegment(uint8_t compression, uint8_t mode, ByteReader bytes, TextBuilder& text) {
  if (compression == 1 || compression == 2) {
    if (mode == 0)
      decodeHuffman(compression == 1 ? kTitleTrees : kDescriptionTrees, bytes.data(), bytes.left(),
                    text);
  } else if (compression != 0) {
    return;
  } else if (mode == kModeUtf16) {
    while (bytes.left() >= 2) text.addUnit(bytes.u16());
  } else if (mode == kModeScsu) {
    ScsuDecoder(bytes.data(), bytes.left(), text).decode();
  } else if (selectsPage(mode)) {
    while (bytes.left() > 0) text.addUnit(static_cast<uint16_t>(mode << 8 | bytes.u8()));
  }
}

bool isEnglish(uint32_t language) { return (language | 0x202020) == 0x656E67; }  // "eng"

}  // namespace

std::string readText(const uint8_t* data, size_t size, size_t maxBytes) {
  ByteReader in(data, size);
  std::string first;
  for (unsigned strings = in.u8(); strings > 0 && !in.passedEnd(); --strings) {
    const uint32_t language = in.u24();
    const bool wanted = first.empty() || isEnglish(language);
    TextBuilder text(wanted ? maxBytes : 0);
    for (unsigned segments = in.u8(); segments > 0; --segments) {
      const uint8_t compression = in.u8();
      const uint8_t mode = in.u8();
      const ByteReader bytes = in.part(in.u8());
      if (in.passedEnd()) break;
      if (wanted) decodeSegment(compression, mode, bytes, text);
    }
    std::string decoded = text.finish();
    if (decoded.empty()) continue;
    if (isEnglish(language)) return decoded;
    first = std::move(decoded);
  }
  return first;
}

size_t wholeCharacters(std::string_view text, size_t maxBytes) {
  if (text.size() <= maxBytes) return text.size() & ~size_t{1};
  size_t size = maxBytes & ~size_t{1};
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  if (size >= 2 && isHighSurrogate(read16(bytes + size - 2))) size -= 2;
  return size;
}

void copyText(std::string_view text, multiple_lang_t& lent) {
  const size_t size = lent.text ? wholeCharacters(text, lent.length) : 0;
  if (size > 0) std::memcpy(lent.text, text.data(), size);
  lent.length = static_cast<uint16_t>(size);
  lent.encoding = AI_TEXT_UTF16BE;
}

std::string toUtf16(std::string_view latin1) {
  std::string text;
  for (const char c : latin1) {
    text += '\0';
    text += c;
  }
  return text;
}

}  // namespace atschost
