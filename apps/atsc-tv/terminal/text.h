// Prepares text from broadcasts and from other processes for a terminal.
#ifndef ATSC_TV_TERMINAL_TEXT_H_
#define ATSC_TV_TERMINAL_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace apps::tv {

// Returns the number of terminal columns that a text takes.
size_t displayWidth(std::string_view text);

// Shortens a printable text to at most `width` columns; a shortened text ends with an ellipsis.
std::string cut(std::string_view text, size_t width);

// Shortens a printable text like cut(), then pads it with blanks to exactly `width` columns.
std::string fitted(std::string_view text, size_t width);

// Converts ASCII letters to lower case.
std::string lowerCase(std::string text);

// Wraps a printable line into lines of at most `width` columns, at blanks if there are any.
std::vector<std::string> wrapped(std::string_view text, size_t width);

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_TEXT_H_
