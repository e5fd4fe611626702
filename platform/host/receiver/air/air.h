// The air folder, which holds a transport stream file for each carrier.
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

// Opens a regular file for reading. Refuses anything else (a folder, a pipe), so that opening never
// waits. On failure the reason is in errno.
File openRegular(const std::string& path);

// Identifies one content of a file, as far as the system knows without reading the file.
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

// Return the id of an open file, and of the file that has the path now; none, with the reason in
// errno, if the system fails to read it.
std::optional<StreamId> streamId(const std::string& path, const File& file);
std::optional<StreamId> streamId(const std::string& path);

// An antenna: access to the stream files of a folder. Any thread.
class Air {
 public:
  // Sets the folder. An empty folder stands for the environment variable ATSC_AIR.
  void setFolder(const std::string& folder);
  // Sets how long a scan stays on each frequency before it reads.
  void setDwell(std::chrono::milliseconds dwell) { dwell_ = dwell; }
  std::chrono::milliseconds dwell() const { return dwell_; }
  // Sets whether streams are read as fast as possible instead of at their own pace.
  void setFast(bool fast) { fast_ = fast; }
  bool fast() const { return fast_; }

  // Returns the path of the stream file of a carrier; empty if no folder is set. Logs one warning
  // if the folder is not set or cannot be searched.
  std::string carrierPath(uint32_t source, uint32_t frequency) const;

  // Returns whether a tuner would lock: whether the carrier's file can be opened.
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
