// Prepares text from broadcasts and from other processes for a terminal.
#ifndef ATSC_TV_TERMINAL_TEXT_H_
#define ATSC_TV_TERMINAL_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace apps::tv {

// Converts a text to valid UTF-8 and replaces each character that controls a terminal or the
// writing direction with U+FFFD. Keeps line feeds if `keepLines` is set.
std::string printable(std::string_view text, bool keepLines = false);

// Returns the number of terminal columns that a text takes.
size_t displayWidth(std::string_view text);

// Converts a broadcast text to one printable line; line ends and tabs become blanks.
std::string oneLine(std::string_view text);

// Shortens a printable text to at most `width` columns; a shortened text ends with an ellipsis.
std::string cut(std::string_view text, size_t width);

// Shortens a printable text like cut(), then pads it with blanks to exactly `width` columns.
std::string fitted(std::string_view text, size_t width);

// Converts ASCII letters to lower case.
std::string lowerCase(std::string text);

// Normalises a name for comparisons: lower case, without blanks, hyphens and full stops.
std::string plainName(std::string_view text);

// Wraps a printable line into lines of at most `width` columns, at blanks if there are any.
std::vector<std::string> wrapped(std::string_view text, size_t width);

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_TEXT_H_
