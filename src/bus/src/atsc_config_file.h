// Paths of the JSON files that a product adds.
#ifndef ATSC_ATSC_CONFIG_FILE_H_
#define ATSC_ATSC_CONFIG_FILE_H_

#include <string>

namespace atsc {

// Returns the path in the environment variable `variable`. If the variable is not set or equals
// `defaultPath`, returns the file of the same name in the folder of the executable if that file is
// readable, else `defaultPath`.
std::string configFile(const char* variable, const char* defaultPath);

}  // namespace atsc

#endif  // ATSC_ATSC_CONFIG_FILE_H_
