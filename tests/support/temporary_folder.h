#ifndef ATSC_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define ATSC_TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

// A temporary folder. The destructor removes it in the process that created it.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(
      const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : owner_(getpid()) {
    std::string name = parent / "atsc-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    if (getpid() == owner_) std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Returns a parent folder in memory, if the machine has one.
  static std::filesystem::path memory() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path();
  }

 private:
  const pid_t owner_;
  std::filesystem::path path_;
};

#endif  // ATSC_TESTS_SUPPORT_TEMPORARY_FOLDER_H_
