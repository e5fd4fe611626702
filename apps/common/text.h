// Texts from broadcasts and from other processes.
#ifndef ATSC_APPS_COMMON_TEXT_H_
#define ATSC_APPS_COMMON_TEXT_H_

#include <string>
#include <string_view>
#include <vector>

namespace apps {

// Converts a text to valid UTF-8. Joins surrogates that are encoded separately (CESU-8, as in the
// databases); replaces lone surrogates and malformed bytes with U+FFFD.
std::string validUtf8(std::string_view text);

// Return the code points of a text, as validUtf8() sees them, and the text of such code points.
std::u32string decodeUtf8(std::string_view text);
std::string encodeUtf8(const std::u32string& points);

// Converts a text to valid UTF-8 and replaces each character that controls a terminal or the
// writing direction with U+FFFD. Keeps line feeds if `keepLines` is set.
std::string printable(std::string_view text, bool keepLines = false);

// Converts a broadcast text to one printable line; line ends and tabs become blanks.
std::string oneLine(std::string_view text);

// Normalises a name for comparisons: lower case, without blanks, hyphens and full stops.
std::string plainName(std::string_view text);

// Splits a text at a separator. A separator at the end adds no empty part.
std::vector<std::string> split(const std::string& text, char separator);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_TEXT_H_
