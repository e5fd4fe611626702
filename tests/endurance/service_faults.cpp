// Linked into the service before the C library: faults of the disk for the files of
// ATSC_FAULT_FOLDER, controlled by the first line of the file ATSC_FAULT_CONTROL. The line is read
// with every call on those files. Counting restarts at 1 when the line changes.
//
//   count        writes the number of calls to ATSC_FAULT_CONTROL.count
//   cut N SEED   ends the process at the N-th call, or in the middle of its write
//   power N SEED like cut, and a random part of the unsynced data is lost
//   fail ERROR   calls fail with that errno, like on such a disk, until the line changes
#undef _FILE_OFFSET_BITS  // both names of a call are defined here
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace {

// Returns the function of the C library or of a sanitizer before it.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using Open = int(const char*, int, ...);
using Pwrite = ssize_t(int, const void*, size_t, off64_t);
using Truncate = int(int, off64_t);

int realOpen(const char* path, int flags, mode_t mode = 0) {
  static Open* const call = next<Open>("open64");
  return call(path, flags, mode);
}

ssize_t realPwrite(int fd, const void* data, size_t size, off64_t at) {
  static Pwrite* const call = next<Pwrite>("pwrite64");
  return call(fd, data, size, at);
}

int realTruncate(int fd, off64_t size) {
  static Truncate* const call = next<Truncate>("ftruncate64");
  return call(fd, size);
}

int realUnlink(const char* path) {
  static auto* const call = next<int(const char*)>("unlink");
  return call(path);
}

std::string readAll(const std::string& path) {
  std::string text;
  const int fd = realOpen(path.c_str(), O_RDONLY | O_CLOEXEC);
  char chunk[65536];
  for (ssize_t got; fd >= 0 && (got = read(fd, chunk, sizeof chunk)) > 0;) {
    text.append(chunk, static_cast<size_t>(got));
  }
  if (fd >= 0) close(fd);
  return text;
}

void writeAll(const std::string& path, const std::string& text) {
  const int fd = realOpen(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return;
  realTruncate(fd, 0);
  realPwrite(fd, text.data(), text.size(), 0);
  close(fd);
}

// Changes of a file since its last sync.
struct Change {
  bool truncate;
  off64_t at;  // or the new size
  std::string data;

  void apply(std::string& content) const {
    const size_t begin = static_cast<size_t>(at);
    if (truncate) return content.resize(begin);
    if (content.size() < begin + data.size()) content.resize(begin + data.size());
    content.replace(begin, data.size(), data);
  }
};

struct File {
  std::string durable;
  std::vector<Change> changes;

  void sync() {
    for (const Change& change : changes) change.apply(durable);
    changes.clear();
  }
};

enum class Kind { kOpen, kCreate, kWrite, kTruncate, kSync, kName };

class Disk {
 public:
  static Disk& instance() {
    static Disk& disk = *new Disk;
    return disk;
  }

  // Returns the watched file of a path or descriptor; empty when it is not watched.
  std::string watched(const char* path) const {
    const bool below = !folder_.empty() && strncmp(path, folder_.c_str(), folder_.size()) == 0;
    return below && path[folder_.size()] == '/' ? path : "";
  }
  std::string watched(int fd) const {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = folder_.empty() ? -1 : readlink(link.c_str(), path, sizeof path - 1);
    if (length <= 0) return "";
    path[length] = '\0';
    return path == folder_ ? folder_ : watched(path);
  }
  bool isFolder(const std::string& path) const { return path == folder_; }

  // Counts a call before it is made. Returns the errno with which it fails, or 0. Calls `part` when
  // the process is to die in the middle of the call.
  template <typename Part>
  int before(Kind kind, const Part& part) {
    follow();
    if (mode_ == "fail") return fails(kind) ? error_ : 0;
    if (kind == Kind::kOpen) return 0;
    ++calls_;
    if (mode_ == "count") writeAll(control_ + ".count", std::to_string(calls_));
    if ((mode_ != "cut" && mode_ != "power") || calls_ != at_) return 0;
    if (random_() % 2 != 0) part();
    if (mode_ == "power") losePower();
    kill(getpid(), SIGKILL);
    for (;;) pause();
  }

  File& file(const std::string& path) { return *entry(path); }

  void created(const std::string& path) {
    names_.push_back({path, nullptr});
    files_[path] = std::make_shared<File>();
  }
  void removed(const std::string& path) {
    names_.push_back({path, entry(path)});
    files_[path] = nullptr;
  }
  void renamed(const std::string& from, const std::string& to) {
    const std::shared_ptr<File> moved = entry(from);
    names_.push_back({to, access(to.c_str(), F_OK) == 0 ? entry(to) : nullptr});
    removed(from);
    files_[to] = moved;
  }
  void namesSynced() { names_.clear(); }
  void allSynced() {
    for (const auto& [path, file] : files_) {
      if (file != nullptr) file->sync();
    }
    namesSynced();
  }

  std::mutex mutex;

 private:
  Disk() {
    const char* folder = getenv("ATSC_FAULT_FOLDER");
    const char* control = getenv("ATSC_FAULT_CONTROL");
    if (folder == nullptr || control == nullptr) return;
    folder_ = folder;
    control_ = control;
  }

  const std::shared_ptr<File>& entry(const std::string& path) {
    std::shared_ptr<File>& file = files_[path];
    if (file == nullptr) file = std::make_shared<File>(File{readAll(path), {}});
    return file;
  }

  void follow() {
    const std::string text = readAll(control_);
    const std::string line = text.substr(0, text.find('\n'));
    if (line == line_) return;
    line_ = line;
    calls_ = 0;
    mode_ = line.substr(0, line.find(' '));
    const char* rest = line.c_str() + std::min(line.size(), mode_.size() + 1);
    if (mode_ == "fail") error_ = number(rest);
    char* end = nullptr;
    at_ = strtoul(rest, &end, 10);
    random_.seed(static_cast<unsigned>(strtoul(end, nullptr, 10)));
  }

  static int number(const std::string& name) {
    return name == "ENOSPC" ? ENOSPC : name == "EROFS" ? EROFS : name == "EACCES" ? EACCES : EIO;
  }

  bool fails(Kind kind) const {
    switch (error_) {
      case ENOSPC:
        return kind == Kind::kWrite;
      case EIO:
        return kind == Kind::kWrite || kind == Kind::kSync;
      default:
        return kind == Kind::kOpen || kind == Kind::kCreate || kind == Kind::kName;
    }
  }

  // Leaves a possible state after a power cut on the disk: synced content with any part of the
  // later changes, and file names without the last changes.
  void losePower() {
    std::map<std::string, std::shared_ptr<File>> touched = files_;
    for (size_t lost = random_() % (names_.size() + 1); lost > 0; --lost) {
      touched[names_.back().path] = names_.back().before;
      names_.pop_back();
    }
    for (const auto& [path, file] : touched) {
      if (file == nullptr) {
        realUnlink(path.c_str());
        continue;
      }
      std::string content = file->durable;
      const unsigned odds = random_() % 5;  // from all to none
      for (const Change& change : file->changes) {
        if (random_() % 4 >= odds) change.apply(content);
      }
      writeAll(path, content);
    }
  }

  std::string folder_;
  std::string control_;
  std::string line_;
  std::string mode_;
  int error_ = 0;
  unsigned long at_ = 0;
  unsigned long calls_ = 0;
  std::minstd_rand random_;

  std::map<std::string, std::shared_ptr<File>> files_;  // null: no file
  struct Name {
    std::string path;
    std::shared_ptr<File> before;  // null: no file before
  };
  std::vector<Name> names_;  // changes of the folder that are not synced
};

int failed(int error) {
  errno = error;
  return -1;
}

const auto kWhole = [] {};

int openFile(const char* path, int flags, mode_t mode) {
  Disk& disk = Disk::instance();
  const std::string name = disk.watched(path);
  if (name.empty() || (flags & O_ACCMODE) == O_RDONLY) return realOpen(path, flags, mode);
  std::lock_guard<std::mutex> lock(disk.mutex);
  const bool create = (flags & O_CREAT) != 0 && access(path, F_OK) != 0;
  if (const int error = disk.before(create ? Kind::kCreate : Kind::kOpen, kWhole)) {
    return failed(error);
  }
  if (!create) disk.file(name);
  const int fd = realOpen(path, flags, mode);
  if (fd < 0) return fd;
  if (create) disk.created(name);
  if ((flags & O_TRUNC) != 0) disk.file(name).changes.push_back({true, 0, {}});
  return fd;
}

template <typename Call>
ssize_t writeFile(int fd, const void* data, size_t size, off64_t at, const Call& call) {
  Disk& disk = Disk::instance();
  const int before = errno;
  const std::string name = disk.watched(fd);
  errno = before;
  if (name.empty()) return call(size);
  std::lock_guard<std::mutex> lock(disk.mutex);
  if (at < 0) at = lseek64(fd, 0, SEEK_CUR);
  File& file = disk.file(name);
  const auto note = [&](size_t count) {
    file.changes.push_back({false, at, {static_cast<const char*>(data), count}});
  };
  if (const int error = disk.before(Kind::kWrite, [&] {
        call(size / 2);
        note(size / 2);
      })) {
    return failed(error);
  }
  const ssize_t written = call(size);
  if (written > 0) note(static_cast<size_t>(written));
  return written;
}

int truncateFile(int fd, off64_t size) {
  Disk& disk = Disk::instance();
  const std::string name = disk.watched(fd);
  if (name.empty()) return realTruncate(fd, size);
  std::lock_guard<std::mutex> lock(disk.mutex);
  File& file = disk.file(name);
  if (const int error = disk.before(Kind::kTruncate, kWhole)) return failed(error);
  file.changes.push_back({true, size, {}});
  return realTruncate(fd, size);
}

int syncFile(int fd, int (*call)(int)) {
  Disk& disk = Disk::instance();
  const std::string name = disk.watched(fd);
  if (name.empty()) return call(fd);
  std::lock_guard<std::mutex> lock(disk.mutex);
  if (const int error = disk.before(Kind::kSync, kWhole)) return failed(error);
  if (disk.isFolder(name)) {
    disk.namesSynced();
  } else {
    disk.file(name).sync();
  }
  return 0;  // the machine under the test stays on
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return openFile(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return openFile(path, flags, mode);
}

ssize_t write(int fd, const void* data, size_t size) {
  static auto* const call = next<ssize_t(int, const void*, size_t)>("write");
  return writeFile(fd, data, size, -1, [=](size_t part) { return call(fd, data, part); });
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t at) {
  return writeFile(fd, data, size, at, [=](size_t part) { return realPwrite(fd, data, part, at); });
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
  return pwrite64(fd, data, size, at);
}

int ftruncate64(int fd, off64_t size) noexcept { return truncateFile(fd, size); }

int ftruncate(int fd, off_t size) noexcept { return truncateFile(fd, size); }

int fsync(int fd) {
  static auto* const call = next<int(int)>("fsync");
  return syncFile(fd, call);
}

int fdatasync(int fd) {
  static auto* const call = next<int(int)>("fdatasync");
  return syncFile(fd, call);
}

void sync() noexcept {
  Disk& disk = Disk::instance();
  std::lock_guard<std::mutex> lock(disk.mutex);
  disk.before(Kind::kSync, kWhole);
  disk.allSynced();
}

int unlink(const char* path) noexcept {
  Disk& disk = Disk::instance();
  const std::string name = disk.watched(path);
  if (name.empty() || access(path, F_OK) != 0) return realUnlink(path);
  std::lock_guard<std::mutex> lock(disk.mutex);
  if (const int error = disk.before(Kind::kName, kWhole)) return failed(error);
  disk.removed(name);
  return realUnlink(path);
}

int rename(const char* from, const char* to) noexcept {
  static auto* const call = next<int(const char*, const char*)>("rename");
  Disk& disk = Disk::instance();
  if (disk.watched(from).empty()) return call(from, to);
  std::lock_guard<std::mutex> lock(disk.mutex);
  if (const int error = disk.before(Kind::kName, kWhole)) return failed(error);
  disk.renamed(from, to);
  return call(from, to);
}

}  // extern "C"
