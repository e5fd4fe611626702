// The air folder: one transport stream file for each carrier that "is on the air".
#ifndef ATSC_HOST_RECEIVER_STREAM_AIR_H_
#define ATSC_HOST_RECEIVER_STREAM_AIR_H_

#include <cstdint>
#include <optional>
#include <string>

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

// Set by the program; an empty folder stands for the environment variable ATSC_AIR. Any thread.
void setAirFolder(const std::string& folder);
void setDwell(unsigned milliseconds);
unsigned dwell();
void setFast(bool fast);
bool fast();

// The stream file of a carrier; empty, with one warning a process, when no air folder is set.
std::string carrierPath(uint32_t source, uint32_t frequency);

// Whether a tuner would lock: the carrier's file can be opened. Any thread.
bool carrierExists(uint32_t source, uint32_t frequency);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STREAM_AIR_H_
