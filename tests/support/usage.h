#ifndef ATSC_TESTS_SUPPORT_USAGE_H_
#define ATSC_TESTS_SUPPORT_USAGE_H_

#include <sys/types.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

// Returns whether tests run in their long form.
inline bool longForm() { return std::getenv("ATSC_TEST_LONG") != nullptr; }

// Resources of a process.
struct Usage {
  long threads = 0;
  long descriptors = 0;
};

inline Usage usageOf(pid_t pid) {
  Usage usage;
  const std::string folder = "/proc/" + std::to_string(pid);
  std::ifstream status(folder + "/status");
  for (std::string word; status >> word;) {
    if (word == "Threads:") status >> usage.threads;
  }
  std::error_code gone;
  const std::filesystem::directory_iterator descriptors(folder + "/fd", gone);
  usage.descriptors = std::distance(begin(descriptors), end(descriptors));
  return usage;
}

#endif  // ATSC_TESTS_SUPPORT_USAGE_H_
