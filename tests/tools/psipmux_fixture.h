// Runs psipmux for its tests, with files and lineups.
#ifndef ATSC_TESTS_PSIPMUX_FIXTURE_H_
#define ATSC_TESTS_PSIPMUX_FIXTURE_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "temporary_folder.h"

namespace fs = std::filesystem;

inline std::vector<uint8_t> readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Outcome {
  int status = -1;
  std::string output;  // standard output and error
};

inline Outcome runPsipmux(const std::string& arguments) {
  const std::string command = std::string(PSIPMUX) + " " + arguments + " 2>&1";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), nullptr);
  Outcome outcome;
  std::array<char, 512> buffer;
  while (fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr)
    outcome.output += buffer.data();
  const int status = pclose(pipe.release());
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  return outcome;
}

/// Creates a separate folder for every test.
class PsipmuxTest : public testing::Test {
 protected:
  std::set<std::string> files() const {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
      if (!entry.is_directory()) files.insert(entry.path().lexically_relative(folder_).string());
    }
    return files;
  }

  const TemporaryFolder temporary_;
  const fs::path folder_ = temporary_.path();
};

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// Returns a lineup of `count` services with an audio stream and the longest extended name.
inline std::string largeLineup(unsigned count) {
  std::string json = R"({"medium": "air", "channels": [{"frequency": 177000000, "tsid": 1,)"
                     R"( "services": [)";
  for (unsigned i = 0; i < count; ++i) {
    const std::string pid = std::to_string(32 + 2 * i);
    json += (i == 0 ? "" : ",") + std::string(R"({"program": )") + std::to_string(i + 1) +
            R"(, "pmt_pid": )" + pid + R"(, "major": 9, "minor": )" + std::to_string(i) +
            R"(, "name": "Many", "source_id": )" + std::to_string(i + 1) +
            R"(, "extended_name": ")" + std::string(247, 'x') +
            R"(", "streams": [{"type": "ac3", "language": "eng", "pid": )" +
            std::to_string(33 + 2 * i) + "}]}";
  }
  return json + "]}]}";
}

#endif  // ATSC_TESTS_PSIPMUX_FIXTURE_H_
