// Names of services that a viewer gives.
#ifndef ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_
#define ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_

#include <string>

#include "middleware_types.h"

namespace atschost {

// The name as the service list keeps it: UTF-16BE, whole pairs of surrogates only, at most 64 code
// units. Single-byte text is UTF-8 where it is valid UTF-8, else Latin-1. A NUL ends it.
std::string serviceName(const multiple_lang_t& text);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_SERVICE_NAME_H_
