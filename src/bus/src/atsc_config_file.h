// Where the JSON files are that a product adds.
#ifndef ATSC_ATSC_CONFIG_FILE_H_
#define ATSC_ATSC_CONFIG_FILE_H_

#include <string>

namespace atsc {

// The path that the environment variable `variable` gives; without it, or when it gives the
// default itself, a file of the default's name beside the executable, where there is one to read,
// else `default_path`.
std::string configFile(const char* variable, const char* default_path);

}  // namespace atsc

#endif  // ATSC_ATSC_CONFIG_FILE_H_
