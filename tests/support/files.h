#ifndef ATSC_TESTS_SUPPORT_FILES_H_
#define ATSC_TESTS_SUPPORT_FILES_H_

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

// Returns the content of a file; nothing when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
inline std::vector<uint8_t> readBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Writes a whole file.
inline void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}
inline void writeFile(const std::filesystem::path& path, const std::vector<uint8_t>& bytes) {
  writeFile(path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

// Replaces a file while others may read it.
template <typename Content>
void replaceFile(const std::filesystem::path& path, const Content& content) {
  const std::filesystem::path made = path.string() + ".new";
  writeFile(made, content);
  std::filesystem::rename(made, path);
}

#endif  // ATSC_TESTS_SUPPORT_FILES_H_
