// Names that viewers give to services.
#ifndef ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_
#define ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_

#include <string>

#include "middleware_types.h"

namespace atschost {

// Converts a name for the service list: to UTF-16BE of at most 64 code units, without halves of
// surrogate pairs. Single-byte text is taken as UTF-8 if it is valid UTF-8, else as Latin-1. A NUL
// ends the name.
std::string serviceName(const multiple_lang_t& text);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_
