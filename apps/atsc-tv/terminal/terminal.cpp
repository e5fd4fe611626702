#include "terminal/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace apps::tv {

std::optional<size_t> terminalWidth() {
  constexpr size_t kUsual = 80;
  if (isatty(STDOUT_FILENO) != 1) return std::nullopt;
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
  return size.ws_col;
}

bool terminalHasBold() {
  const char* kind = getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

}  // namespace apps::tv
