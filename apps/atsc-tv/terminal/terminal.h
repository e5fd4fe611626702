// Properties of the terminal on standard output.
#ifndef ATSC_TV_TERMINAL_TERMINAL_H_
#define ATSC_TV_TERMINAL_TERMINAL_H_

#include <cstddef>
#include <optional>

namespace apps::tv {

// Returns the width in columns, 80 if the terminal does not report its width, and nothing if
// standard output is not a terminal.
std::optional<size_t> terminalWidth();

// Returns whether standard output is a terminal that shows bold text.
bool terminalHasBold();

}  // namespace apps::tv

#endif  // ATSC_TV_TERMINAL_TERMINAL_H_
