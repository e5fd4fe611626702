// The air folder: one transport stream file for each carrier that "is on the air".
#ifndef ATSC_HOST_RECEIVER_AIR_H_
#define ATSC_HOST_RECEIVER_AIR_H_

#include <cstdint>
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
File open_regular(const std::string& path);

// Set by the program; an empty folder stands for the environment variable ATSC_AIR. Any thread.
void set_air_folder(const std::string& folder);
void set_dwell(unsigned milliseconds);
unsigned dwell();

// The stream file of a carrier; empty, with one warning a process, when no air folder is set.
std::string carrier_path(uint32_t source, uint32_t frequency);

// Whether a tuner would lock: the carrier's file can be opened. Any thread.
bool carrier_exists(uint32_t source, uint32_t frequency);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_AIR_H_
