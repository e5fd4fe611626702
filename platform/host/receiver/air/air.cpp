#include "receiver/air/air.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "process/log.h"
#include "receiver/air/frequency_plan.h"

namespace atschost {
namespace {

StreamId idOf(const std::string& path, const struct stat& status) {
  return {path, status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
          int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec};
}

}  // namespace

File::~File() {
  if (fd_ >= 0) close(fd_);
}

File& File::operator=(File&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

File openRegular(const std::string& path) {
  File file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return file;
  struct stat status;
  if (fstat(file.fd(), &status) != 0) return File();
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return File();
  }
  return file;
}

std::optional<StreamId> streamId(const std::string& path, const File& file) {
  struct stat status;
  if (fstat(file.fd(), &status) != 0) return std::nullopt;
  return idOf(path, status);
}

std::optional<StreamId> streamId(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return idOf(path, status);
}

void Air::setFolder(const std::string& folder) {
  const MutexLock lock(mutex_);
  folder_ = folder;
}

std::string Air::carrierPath(uint32_t source, uint32_t frequency) const {
  const MutexLock lock(mutex_);
  std::string folder = folder_;
  if (const char* set = getenv("ATSC_AIR"); folder.empty() && set) folder = set;
  if (folder.empty()) {
    if (!warned_) log().Warn("no air folder is set (ATSC_AIR): no carrier will lock");
    warned_ = true;
    return {};
  }
  if (access(folder.c_str(), X_OK) != 0 && !warned_) {
    log().Warn("air folder %s: %m: no carrier will lock", folder.c_str());
    warned_ = true;
  }
  return folder + "/" + modulationName(source) + "/" + std::to_string(frequency) + ".ts";
}

bool Air::carrierExists(uint32_t source, uint32_t frequency) const {
  const std::string path = carrierPath(source, frequency);
  return !path.empty() && openRegular(path);
}

}  // namespace atschost
