// Linked into the service before the C library: faults of the disk for the files of
// ATSC_FAULT_FOLDER, controlled by the file ATSC_FAULT_CONTROL. It is read with every call on those
// files. Counting restarts at 1 when it changes.
//
//   count        writes the number of calls to ATSC_FAULT_CONTROL.count
//   cut N SEED   ends the process at the N-th call, or in the middle of its write
//   power N SEED like cut, and a random part of the unsynced data is lost
//   fail ERRNO   calls fail with that error, like on such a disk, until the file changes
#undef _FILE_OFFSET_BITS  // both names of a call are defined here
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "files.h"

namespace {

// Returns the function of the C library or of a sanitizer before it.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using Change = std::function<void(std::string& content)>;

struct File {
  std::string durable;
  std::vector<Change> changes;  // since the last sync

  void sync() {
    for (const Change& change : changes) change(durable);
    changes.clear();
  }
};

enum class Kind { kOpen, kName, kWrite, kTruncate, kSync };

class Disk {
 public:
  static Disk& instance() {
    static Disk& disk = *new Disk;
    return disk;
  }

  bool watches(const std::string& path) const {
    return !folder_.empty() && !tOwnCall && (path + '/').rfind(folder_ + '/', 0) == 0;
  }

  // Makes a call on a path: counts it and notes what it changes. `part` begins a call in whose
  // middle the process dies.
  template <typename Call>
  auto make(
      Kind kind, const std::string& path, const Call& call, const std::function<void()>& note,
      const std::function<void()>& part = [] {}) -> decltype(call()) {
    if (!watches(path)) return call();
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int error = before(kind, part)) {
      errno = error;
      return -1;
    }
    note();
    return call();
  }

  void change(const std::string& path, const Change& change) {
    if (const std::shared_ptr<File>& changed = file(path)) changed->changes.push_back(change);
  }

  // Returns the file that a name stands for; null for none.
  std::shared_ptr<File>& file(const std::string& path) {
    std::shared_ptr<File>& found = files_[path];
    if (found == nullptr && access(path.c_str(), F_OK) == 0) {
      found = std::make_shared<File>(File{readFile(path), {}});
    }
    return found;
  }

  void setName(const std::string& path, const std::shared_ptr<File>& named) {
    names_.emplace_back(path, file(path));
    files_[path] = named;
  }

  // Makes a file durable, or the names of the folder, or everything.
  void synced(const std::string& path) {
    if (path == folder_ || path.empty()) names_.clear();
    for (const auto& [name, synced] : files_) {
      if (synced != nullptr && (path == name || path.empty())) synced->sync();
    }
  }

  std::string folder() const { return folder_; }

 private:
  static std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
  }

  // Returns the errno with which a call fails, or 0.
  int before(Kind kind, const std::function<void()>& part) {
    tOwnCall = true;
    if (const std::string line = readFile(control_); line != line_) {
      line_ = line;
      mode_.clear();
      calls_ = number_ = 0;
      unsigned seed = 0;
      std::istringstream(line) >> mode_ >> number_ >> seed;
      random_.seed(seed);
    }
    if (kind != Kind::kOpen) {
      ++calls_;
      if (mode_ == "count") writeFile(control_ + ".count", std::to_string(calls_));
      if ((mode_ == "cut" || mode_ == "power") && calls_ == number_) die(part);
    }
    tOwnCall = false;
    return mode_ == "fail" && fails(kind) ? number_ : 0;
  }

  bool fails(Kind kind) const {
    switch (number_) {
      case ENOSPC:
        return kind == Kind::kWrite;
      case EIO:
        return kind == Kind::kWrite || kind == Kind::kSync;
      default:
        return kind == Kind::kOpen || kind == Kind::kName;
    }
  }

  void die(const std::function<void()>& part) {
    if (random_() % 2 != 0) part();
    if (mode_ == "power") losePower();
    kill(getpid(), SIGKILL);
    for (;;) pause();
  }

  // Leaves a possible state after a power cut on the disk: synced content with any part of the
  // later changes, and file names without the last changes.
  void losePower() {
    for (size_t lost = random_() % (names_.size() + 1); lost > 0; --lost) {
      files_[names_.back().first] = names_.back().second;
      names_.pop_back();
    }
    for (const auto& [path, left] : files_) {
      if (left == nullptr) {
        unlink(path.c_str());
        continue;
      }
      std::string content = left->durable;
      const unsigned odds = random_() % 5;  // from all to none
      for (const Change& change : left->changes) {
        if (random_() % 4 >= odds) change(content);
      }
      writeFile(path, content);
    }
  }

  static thread_local bool tOwnCall;  // calls of this file itself have no faults

  const std::string folder_ = variable("ATSC_FAULT_FOLDER");
  const std::string control_ = variable("ATSC_FAULT_CONTROL");
  std::mutex mutex_;
  std::string line_;
  std::string mode_;
  int number_ = 0;
  int calls_ = 0;
  std::minstd_rand random_;
  std::map<std::string, std::shared_ptr<File>> files_;
  std::vector<std::pair<std::string, std::shared_ptr<File>>> names_;  // unsynced; what was before
};

thread_local bool Disk::tOwnCall = false;

std::string pathOf(int fd) {
  std::error_code none;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
}

}  // namespace

extern "C" {

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  const auto call = [=] { return next<decltype(open64)>("open64")(path, flags, mode); };
  Disk& disk = Disk::instance();
  if ((flags & O_ACCMODE) == O_RDONLY) return call();
  if ((flags & O_CREAT) == 0 || access(path, F_OK) == 0) {
    return disk.make(Kind::kOpen, path, call, [&] { disk.file(path); });
  }
  return disk.make(Kind::kName, path, call, [&] { disk.setName(path, std::make_shared<File>()); });
}
int open(const char* path, int flags, ...) __attribute__((alias("open64")));

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t at) {
  const std::string path = pathOf(fd);
  const auto call = [&] { return next<decltype(pwrite64)>("pwrite64")(fd, data, size, at); };
  const auto note = [&] {
    const std::string text(static_cast<const char*>(data), size);
    Disk::instance().change(path, [text, begin = static_cast<size_t>(at)](std::string& content) {
      if (content.size() < begin + text.size()) content.resize(begin + text.size());
      content.replace(begin, text.size(), text);
    });
  };
  return Disk::instance().make(Kind::kWrite, path, call, note, [&] {
    size /= 2;
    call();
    note();
  });
}

ssize_t write(int fd, const void* data, size_t size) {
  if (!Disk::instance().watches(pathOf(fd))) return next<decltype(write)>("write")(fd, data, size);
  const ssize_t written = pwrite64(fd, data, size, lseek64(fd, 0, SEEK_CUR));
  if (written > 0) lseek64(fd, written, SEEK_CUR);
  return written;
}

int ftruncate64(int fd, off64_t size) noexcept {
  const std::string path = pathOf(fd);
  return Disk::instance().make(
      Kind::kTruncate, path, [=] { return next<decltype(ftruncate64)>("ftruncate64")(fd, size); },
      [&] {
        Disk::instance().change(
            path, [=](std::string& content) { content.resize(static_cast<size_t>(size)); });
      });
}

// The machine under the test stays on: nothing has to be synced.
int fdatasync(int fd) {
  const std::string path = pathOf(fd);
  return Disk::instance().make(
      Kind::kSync, path, [] { return 0; }, [&] { Disk::instance().synced(path); });
}
int fsync(int fd) __attribute__((alias("fdatasync")));

void sync() noexcept {
  Disk& disk = Disk::instance();
  disk.make(
      Kind::kSync, disk.folder(), [] { return 0; }, [&] { disk.synced(""); });
}

int unlink(const char* path) noexcept {
  const auto call = [=] { return next<decltype(unlink)>("unlink")(path); };
  if (access(path, F_OK) != 0) return call();
  return Disk::instance().make(Kind::kName, path, call,
                               [=] { Disk::instance().setName(path, nullptr); });
}

int rename(const char* from, const char* to) noexcept {
  Disk& disk = Disk::instance();
  return disk.make(
      Kind::kName, from, [=] { return next<decltype(rename)>("rename")(from, to); },
      [&] {
        const std::shared_ptr<File> moved = disk.file(from);
        disk.setName(to, moved);
        disk.setName(from, nullptr);
      });
}

}  // extern "C"
