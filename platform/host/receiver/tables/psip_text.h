// Texts of PSIP tables, converted to UTF-16BE.
#ifndef ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_
#define ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "middleware_types.h"

namespace atschost {

// Returns the English string of a multiple_string_structure (A/65 6.10), or its first string if
// none is English; strings without text do not count. The result has at most `maxBytes`, no NUL and
// no half of a surrogate pair. Segments of an unknown compression or mode are left out. Reading
// stops at a length that passes the end.
std::string readText(const uint8_t* data, size_t size, size_t maxBytes);

// Returns the length of the longest start of a text that has at most `maxBytes` bytes and ends with
// a whole character.
size_t wholeCharacters(std::string_view text, size_t maxBytes);

// Copies a text into the buffer of `lent`, cut to whole characters, and sets length and encoding.
void copyText(std::string_view text, multiple_lang_t& lent);

// Converts Latin-1, the first 256 characters of Unicode.
std::string toUtf16(std::string_view latin1);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_
