// Texts of PSIP tables. All are made UTF-16BE.
#ifndef ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_
#define ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "middleware_types.h"

namespace atschost {

// The text of a multiple_string_structure (A/65 6.10), cut to `max_bytes`: the English string, else
// the first, of those that are not empty. Segments of an unknown compression or mode are left out;
// nothing is read from a length on that passes the end. The result has no NUL and no half of a
// surrogate pair.
std::string readText(const uint8_t* data, size_t size, size_t maxBytes);

// How many of the first `max_bytes` bytes of a text are whole characters.
size_t wholeCharacters(const std::string& text, size_t maxBytes);

// Hands a text out in a buffer that a caller lends, cut to whole characters.
void copyText(const std::string& text, multiple_lang_t& lent);

std::string toUtf16(std::string_view ascii);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_
