// Runs psipmux for its tests, with files and lineups.
#ifndef ATSC_TESTS_PSIPMUX_FIXTURE_H_
#define ATSC_TESTS_PSIPMUX_FIXTURE_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "files.h"
#include "process.h"
#include "replaced.h"
#include "temporary_folder.h"

namespace fs = std::filesystem;

inline std::vector<uint8_t> readStream(const fs::path& path) {
  EXPECT_TRUE(fs::exists(path)) << path;
  return readBytes(path);
}

inline Outcome runPsipmux(std::vector<std::string> words) {
  words.insert(words.begin(), PSIPMUX);
  Process process(words);
  return finish(process);
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
