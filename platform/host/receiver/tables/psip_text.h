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
std::string read_text(const uint8_t* data, size_t size, size_t max_bytes);

// How many of the first `max_bytes` bytes of a text are whole characters.
size_t whole_characters(const std::string& text, size_t max_bytes);

// Hands a text out in a buffer that a caller lends, cut to whole characters.
void copy_text(const std::string& text, multiple_lang_t& lent);

std::string to_utf16(std::string_view ascii);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_PSIP_TEXT_H_
