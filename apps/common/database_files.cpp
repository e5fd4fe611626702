#include "database_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace apps {
namespace {

constexpr const char* kSetFolder = "/mtd_rwarea";
constexpr const char* kChannelFile = "ATSCChannelData.db3";
constexpr const char* kEventFile = "ATSC_event.db";

std::string variable(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? value : "";
}

// On a set the flash partition, on a PC the user's own (XDG base directories, which ignore relative
// paths).
fs::path defaultFolder() {
  std::error_code error;
  if (fs::is_directory(kSetFolder, error) && access(kSetFolder, W_OK | X_OK) == 0) {
    return kSetFolder;
  }
  const fs::path data = variable("XDG_DATA_HOME");
  if (data.is_absolute()) return data / "atsc";
  const fs::path home = variable("HOME");
  if (home.is_absolute()) return home / ".local" / "share" / "atsc";
  throw std::runtime_error("no folder for the databases: neither XDG_DATA_HOME nor HOME is set");
}

[[noreturn]] void fail(const fs::path& path, int error) {
  throw std::runtime_error(path.string() + ": " + std::generic_category().message(error));
}

void makeFolder(const fs::path& folder) {
  std::error_code error;
  if (fs::is_directory(folder, error)) return;
  if (folder.has_parent_path() && folder.parent_path() != folder) makeFolder(folder.parent_path());
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) fail(folder, errno);
}

// Checks a database file; a missing one is made by its first user.
void prepare(const fs::path& file) {
  fs::path folder = file.parent_path();
  if (folder.empty()) folder = ".";
  makeFolder(folder);
  std::error_code error;
  if (!fs::is_directory(folder, error)) fail(folder, ENOTDIR);
  if (access(folder.c_str(), W_OK | X_OK) != 0) fail(folder, errno);
  if (fs::is_directory(file, error)) fail(file, EISDIR);
  if (fs::exists(file, error) && access(file.c_str(), R_OK | W_OK) != 0) fail(file, errno);
}

}  // namespace

DatabaseFiles databaseFiles(const std::string& folder) {
  DatabaseFiles files;
  if (folder.empty()) {
    files = {variable(kChannelDatabaseVariable), variable(kEventDatabaseVariable)};
    if (!files.channels.empty() && !files.events.empty()) return files;
  }
  const fs::path chosen = folder.empty() ? defaultFolder() : fs::path(folder);
  if (files.channels.empty()) files.channels = chosen / kChannelFile;
  if (files.events.empty()) files.events = chosen / kEventFile;
  return files;
}

void prepareDatabaseFiles(const DatabaseFiles& files) {
  prepare(files.channels);
  prepare(files.events);
}

}  // namespace apps
