// Random texts that nobody can guess.
#ifndef ATSC_WEB_HTTP_RANDOM_H_
#define ATSC_WEB_HTTP_RANDOM_H_

#include <cstddef>
#include <string>

namespace web {

// Returns `bytes` random bytes as lower-case hexadecimal digits. Throws std::system_error without
// randomness.
std::string randomHex(size_t bytes);

}  // namespace web

#endif  // ATSC_WEB_HTTP_RANDOM_H_
