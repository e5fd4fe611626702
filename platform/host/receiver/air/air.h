// The air folder: one transport stream file for each carrier that "is on the air".
#ifndef ATSC_HOST_RECEIVER_AIR_AIR_H_
#define ATSC_HOST_RECEIVER_AIR_AIR_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "process/mutex.h"

namespace atschost {

// Owns a file descriptor.
class File {
 public:
  explicit File(int fd = -1) : fd_(fd) {}
  ~File();
  File(File&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  File& operator=(File&& other) noexcept;
  explicit operator bool() const { return fd_ >= 0; }
  int fd() const { return fd_; }

 private:
  int fd_;
};

// Opens a regular file for reading; anything else (a folder, a pipe) is refused, so that opening
// never waits. On failure the reason is in errno.
File openRegular(const std::string& path);

// What tells one content of a file from another, as far as the system knows without reading it.
struct StreamId {
  std::string path;
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t modified = 0;  // nanoseconds

  bool sameFile(const StreamId& other) const {
    return path == other.path && device == other.device && inode == other.inode;
  }
  bool operator==(const StreamId& other) const {
    return sameFile(other) && size == other.size && modified == other.modified;
  }
};

// Of the file that is open, and of the one that has the path now. None, with the reason in errno,
// when the system does not tell.
std::optional<StreamId> streamId(const std::string& path, const File& file);
std::optional<StreamId> streamId(const std::string& path);

// An antenna: a folder with a stream file for each carrier. Any thread.
class Air {
 public:
  // An empty folder stands for the environment variable ATSC_AIR.
  void setFolder(const std::string& folder);
  // How long a scan stays on each frequency before it reads.
  void setDwell(std::chrono::milliseconds dwell) { dwell_ = dwell; }
  std::chrono::milliseconds dwell() const { return dwell_; }
  // Streams are read as fast as possible instead of at their own pace.
  void setFast(bool fast) { fast_ = fast; }
  bool fast() const { return fast_; }

  // The stream file of a carrier; empty, with one warning an antenna, when no folder is set.
  std::string carrierPath(uint32_t source, uint32_t frequency) const;

  // Whether a tuner would lock: the carrier's file can be opened.
  bool carrierExists(uint32_t source, uint32_t frequency) const;

 private:
  mutable Mutex mutex_;
  std::string folder_ GUARDED_BY(mutex_);
  mutable bool warned_ GUARDED_BY(mutex_) = false;
  std::atomic<std::chrono::milliseconds> dwell_{std::chrono::milliseconds(20)};
  std::atomic<bool> fast_{false};
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_AIR_AIR_H_
