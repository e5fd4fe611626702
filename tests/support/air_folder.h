#ifndef ATSC_TESTS_SUPPORT_AIR_FOLDER_H_
#define ATSC_TESTS_SUPPORT_AIR_FOLDER_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "aisrv.h"
#include "files.h"
#include "temporary_folder.h"

// A temporary folder of transport streams that a receiver receives, by input source and frequency.
class AirFolder {
 public:
  explicit AirFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : folder_(parent) {
    for (const char* medium : {"vsb", "qam"}) std::filesystem::create_directory(path() / medium);
  }

  const std::filesystem::path& path() const { return folder_.path(); }
  std::filesystem::path path(uint32_t source, uint32_t frequency) const {
    return path() / (source == AI_INPUT_CABLE ? "qam" : "vsb") /
           (std::to_string(frequency) + ".ts");
  }
  void write(uint32_t source, uint32_t frequency, const std::vector<uint8_t>& stream) const {
    replaceFile(path(source, frequency), stream);
  }

 private:
  const TemporaryFolder folder_;
};

#endif  // ATSC_TESTS_SUPPORT_AIR_FOLDER_H_
