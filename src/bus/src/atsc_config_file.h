// Paths of the JSON files that a product adds.
#ifndef ATSC_ATSC_CONFIG_FILE_H_
#define ATSC_ATSC_CONFIG_FILE_H_

#include <string>

namespace atsc {

// Returns the path in the environment variable `variable`. If the variable is not set or equals
// `default_path`, returns the file of the same name in the folder of the executable if that file is
// readable, else `default_path`.
std::string configFile(const char* variable, const char* default_path);

}  // namespace atsc

#endif  // ATSC_ATSC_CONFIG_FILE_H_
