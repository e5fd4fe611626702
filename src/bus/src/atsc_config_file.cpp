#include "atsc_config_file.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace atsc {

std::string configFile(const char* variable, const char* defaultPath) {
  const char* setting = getenv(variable);
  std::string path = setting != nullptr ? setting : defaultPath;
  if (path != defaultPath) return path;
  char target[256] = {};
  const std::string link = "/proc/" + std::to_string(getpid()) + "/exe";
  if (readlink(link.c_str(), target, sizeof target - 1) > 0) {
    const std::string executable = target;
    const size_t separator = executable.find_last_of("/\\");
    if (separator != std::string::npos) {
      const std::string beside =
          executable.substr(0, separator + 1) + path.substr(path.rfind('/') + 1);
      if (std::ifstream(beside)) return beside;
    }
  }
  return path;
}

}  // namespace atsc
