// Converts texts of the middleware in buffers of their exact size.
#include <sqlite3.h>

#include <algorithm>

#include "atsc_text.h"
#include "harness.h"

namespace {

// Checks UTF-16BE up to the first 0, with every unit encoded separately.
void checkUTF16(const std::vector<uint8_t>& bytes, const std::string& converted) {
  std::string wanted;
  for (size_t i = 0; i + 1 < bytes.size() && bytes.size() % 2 == 0; i += 2) {
    const unsigned unit = bytes[i] << 8 | bytes[i + 1];
    if (unit == 0) break;
    if (unit >= 0x800) wanted += static_cast<char>(0xE0 | unit >> 12);
    if (unit >= 0x80)
      wanted += static_cast<char>(unit >= 0x800 ? 0x80 | (unit >> 6 & 0x3F) : 0xC0 | unit >> 6);
    wanted += static_cast<char>(unit >= 0x80 ? 0x80 | (unit & 0x3F) : unit);
  }
  fuzz::require(converted == wanted, "each unit", converted);

  const uint32_t length = static_cast<uint32_t>(bytes.size());
  const uint32_t size = Utili_UTF16BEToUTF8Length(bytes.data(), length);
  fuzz::require(size == converted.size(), "the length", converted);
  // A smaller capacity needs two additional bytes.
  uint32_t half = size / 2;
  std::vector<uint8_t> small(half + 2);
  Utili_ConvertUTF16BEToUTF8(bytes.data(), length, small.data(), &half);
}

// Checks that SQL reads a quoted text unchanged, for any text.
void checkQuoting(const std::string& text) {
  static SQLite::Database database(":memory:");
  sqlString command;
  command << "SELECT ";
  command.conStr(text);
  const std::string wanted = text.substr(0, text.find('\0'));
  fuzz::require(database.execAndGet(command.str()).getString() == wanted, "a literal", text);
  SQLite::Statement named(database, "SELECT 1 AS " + atsc::quotedIdentifier(wanted));
  fuzz::require(named.getColumnName(0) == wanted, "an identifier", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Harness::restored();
  fuzz::Input input(data, size);
  const auto encoding = static_cast<int32_t>(input.below(3));
  const uint16_t claimed = input.value<uint16_t>();
  const std::string bytes = input.rest();
  std::vector<uint8_t> lent(bytes.begin(), bytes.end());
  const uint32_t capacity = static_cast<uint32_t>(lent.size());
  const multiple_lang_t text{lent.data(), claimed, encoding};
  const std::string converted = atsc::textToUTF8(text, capacity);
  lent.resize(std::min<size_t>(lent.size(), claimed));
  lent.shrink_to_fit();
  if (encoding == AI_TEXT_UTF16BE) {
    checkUTF16(lent, converted);
  } else {
    const std::string whole(lent.begin(), lent.end());
    fuzz::require(converted == whole.substr(0, whole.find('\0')), "the bytes up to a NUL");
  }
  checkQuoting(converted);
  return 0;
}
