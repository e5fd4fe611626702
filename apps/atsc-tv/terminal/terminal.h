// The terminal on standard output.
#ifndef ATSC_TV_TERMINAL_TERMINAL_H_
#define ATSC_TV_TERMINAL_TERMINAL_H_

#include <cstddef>
#include <optional>

namespace tv {

// Its width in columns, 80 where it does not tell; nothing when standard output is no terminal.
std::optional<size_t> terminalWidth();

// Whether it is a terminal that shows bold letters.
bool terminalHasBold();

}  // namespace tv

#endif  // ATSC_TV_TERMINAL_TERMINAL_H_
