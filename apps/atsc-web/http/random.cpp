#include "http/random.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

namespace web {

std::string randomHex(size_t bytes) {
  std::string random(bytes, '\0');
  // Up to 256 bytes are never cut short.
  if (getrandom(random.data(), bytes, 0) != static_cast<ssize_t>(bytes)) {
    throw std::system_error(errno, std::generic_category(), "no random bytes");
  }
  std::string digits;
  for (const char byte : random) {
    constexpr char kDigits[] = "0123456789abcdef";
    digits += kDigits[(byte >> 4) & 0xf];
    digits += kDigits[byte & 0xf];
  }
  return digits;
}

}  // namespace web
