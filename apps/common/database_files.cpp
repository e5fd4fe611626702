#include "common/database_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

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

// Returns the flash partition on a set, and the user's own folder on a PC (XDG base directories,
// which ignore relative paths).
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

// Checks a file that SQLite opens, if the file exists, and revokes the access of other users. The
// links in its path must be resolved.
void keepToOneself(const fs::path& file) {
  struct stat status;
  if (lstat(file.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode)) fail(file, EISDIR);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(file.string() + ": not a regular file");
  if (status.st_nlink > 1 && everyUserCanWrite(file.parent_path())) {
    throw std::runtime_error(file.string() + ": a hard link in a folder that every user can write");
  }
  if (access(file.c_str(), R_OK | W_OK) != 0) fail(file, errno);
  constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
  if ((status.st_mode & kOthers) == 0 || status.st_uid != geteuid()) return;
  // Some file systems have no modes, or the same mode for all files.
  if (chmod(file.c_str(), status.st_mode & S_IRWXU) != 0 && errno != EPERM && errno != ENOTSUP) {
    fail(file, errno);
  }
}

// Checks a database file. SQLite creates a missing file later. Returns the path; for a link, that
// of its target: whoever deletes a broken database means the file, not the link.
std::string prepare(const std::string& file) {
  const fs::path resolved = refusePlanted(file);
  const fs::path folder = resolved.parent_path();
  makeFolder(folder);
  std::error_code error;
  if (!fs::is_directory(folder, error)) fail(folder, ENOTDIR);
  if (access(folder.c_str(), W_OK | X_OK) != 0) fail(folder, errno);
  keepToOneself(resolved);
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    const std::string journal = resolved.string() + suffix;
    refusePlanted(journal);
    keepToOneself(journal);
  }
  return fs::is_symlink(file, error) ? resolved.string() : file;
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

void prepareDatabaseFiles(DatabaseFiles* files) {
  files->channels = prepare(files->channels);
  files->events = prepare(files->events);
}

std::string refusePlanted(const std::string& path) {
  constexpr int kMaxLinks = 40;
  const fs::path whole = fs::absolute(path);
  fs::path done = whole.root_path();
  const fs::path relative = whole.relative_path();
  std::deque<fs::path> parts(relative.begin(), relative.end());
  for (int links = 0; !parts.empty();) {
    const fs::path part = parts.front();
    parts.pop_front();
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      done = done.parent_path();
      continue;
    }
    const fs::path folder = std::exchange(done, done / part);
    struct stat status;
    struct stat folderStatus;
    if (lstat(done.c_str(), &status) != 0 || stat(folder.c_str(), &folderStatus) != 0) continue;
    const uid_t owner = status.st_uid;
    if ((folderStatus.st_mode & S_IWOTH) != 0 && owner != geteuid() && owner != 0 &&
        owner != folderStatus.st_uid) {
      throw std::runtime_error(done.string() + ": not used, it belongs to user " +
                               std::to_string(owner) + " and every user can write " +
                               folder.string());
    }
    if (!S_ISLNK(status.st_mode)) continue;
    if (++links > kMaxLinks) fail(path, ELOOP);
    const fs::path target = fs::read_symlink(done);
    done = target.is_absolute() ? target.root_path() : folder;
    const fs::path more = target.relative_path();
    parts.insert(parts.begin(), more.begin(), more.end());
  }
  return done.string();
}

bool everyUserCanWrite(const std::string& folder) {
  struct stat status;
  return stat(folder.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

}  // namespace apps
