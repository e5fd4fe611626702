// Text from the air and from peers, made fit for a terminal.
#ifndef ATSC_TV_TERMINAL_TEXT_H_
#define ATSC_TV_TERMINAL_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

// The same text in valid UTF-8. Surrogates that were encoded each on its own (CESU-8, as the
// databases hold them) are joined; lone ones and malformed bytes become U+FFFD.
std::string validUtf8(std::string_view text);

// Valid UTF-8 without characters that act on a terminal or on the direction of writing: each one
// becomes U+FFFD. Line feeds stay when `keepLines` is set.
std::string printable(std::string_view text, bool keepLines = false);

// Columns that a text takes on a terminal.
size_t displayWidth(std::string_view text);

// A broadcast text as one printable line: line ends and tabs become blanks.
std::string oneLine(std::string_view text);

// A printable text in at most `width` columns; where it is cut it ends with an ellipsis.
std::string cut(std::string_view text, size_t width);

// The same, filled with blanks to exactly `width` columns.
std::string fitted(std::string_view text, size_t width);

// The parts of a text between separators; one at the end is none.
std::vector<std::string> split(const std::string& text, char separator);

// ASCII letters become small ones.
std::string lowerCase(std::string text);

// What of a name tells it from others however it is typed: small letters, without blanks, hyphens
// and full stops.
std::string plainName(std::string_view text);

// A printable line as lines of at most `width` columns, broken at blanks where there are any.
std::vector<std::string> wrapped(std::string_view text, size_t width);

}  // namespace tv

#endif  // ATSC_TV_TERMINAL_TEXT_H_
