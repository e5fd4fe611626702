#include "receiver/station/state_file.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "process/log.h"
#include "receiver/air/air.h"

namespace atschost {
namespace {

constexpr size_t kMaxFileSize = 64 << 20;

std::string setting(const char* name) {
  const char* value = getenv(name);
  return value ? value : "";
}

std::string toText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = " ";
  return Json::writeString(builder, value) + "\n";
}

[[noreturn]] void throwErrno() { throw std::system_error(errno, std::generic_category()); }

std::string readAll(int fd) {
  std::string text;
  char chunk[65536];
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof(chunk));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throwErrno();
    if (got == 0) return text;
    text.append(chunk, static_cast<size_t>(got));
    if (text.size() > kMaxFileSize) throw std::runtime_error("the file is too large");
  }
}

// Creates a folder and its parents. Sets the mode of created folders only.
bool makeFolder(const std::string& folder) {
  for (size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
    if (mkdir(folder.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

bool writeAll(int fd, const std::string& text) {
  for (size_t written = 0; written < text.size();) {
    const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) written += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::string stateFolder() {
  if (std::string folder = setting("ATSC_HOST_STATE"); !folder.empty()) return folder;
  if (std::string folder = setting("XDG_STATE_HOME"); !folder.empty()) return folder + "/atsc-host";
  if (std::string home = setting("HOME"); !home.empty()) return home + "/.local/state/atsc-host";
  return {};
}

StateFile::StateFile(const std::string& folder, const std::string& name, const std::string& format)
    : folder_(folder), path_(folder + "/" + name), format_(format) {}

bool StateFile::load(const std::function<void(const Json::Value&)>& accept) {
  if (folder_.empty()) return false;
  const bool first = !std::exchange(tried_, true);
  try {
    const File file = openRegular(path_);
    if (!file && (errno == ENOENT || errno == ENOTDIR)) return false;
    if (!file) throwErrno();
    const std::string text = readAll(file.fd());
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value content;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &content, &errors))
      throw std::runtime_error("not JSON: " + errors);
    if (!content.isObject() || content["format"] != format_)
      throw std::runtime_error("not a file of the format " + format_);
    accept(content);
    stored_ = text;
    unread_ = false;
    return true;
  } catch (const std::exception& e) {
    const bool refused = dynamic_cast<const std::system_error*>(&e) != nullptr ||
                         dynamic_cast<const std::bad_alloc*>(&e) != nullptr;
    struct stat status {};
    if (refused && lstat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      // The file itself may be intact: it is kept and never overwritten.
      log().Error("%s cannot be read and is kept as it is: %s", path_.c_str(), e.what());
      unread_ = unread_ || first;
      return false;
    }
    const std::string bad = path_ + ".bad";
    log().Error("%s is not used: %s; renamed to *.bad", path_.c_str(), e.what());
    if (rename(path_.c_str(), bad.c_str()) != 0) log().Error("rename to %s: %m", bad.c_str());
    return false;
  }
}

bool StateFile::store(Json::Value content) {
  if (folder_.empty()) {
    log().Error("nowhere to store the state: set ATSC_HOST_STATE or HOME");
    return false;
  }
  if (unread_) {
    log().Error("%s is not written: it could not be read", path_.c_str());
    return false;
  }
  content["format"] = format_;
  std::string text = toText(content);
  // The file may have been removed.
  if (text == stored_ && access(path_.c_str(), F_OK) == 0) return true;
  stored_.clear();  // a failure can occur after the file was replaced
  if (!write(text)) return false;
  stored_ = std::move(text);
  return true;
}

bool StateFile::write(const std::string& text) const {
  const auto failed = [this](const char* step) {
    log().Error("%s: %s: %m", path_.c_str(), step);
    return false;
  };
  if (!makeFolder(folder_)) return failed("make folder");
  const std::string temporary = path_ + ".new";
  unlink(temporary.c_str());  // left by an interrupted run
  const File file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return failed("create");
  if (!writeAll(file.fd(), text) || fsync(file.fd()) != 0 ||
      rename(temporary.c_str(), path_.c_str()) != 0) {
    failed("write");
    unlink(temporary.c_str());
    return false;
  }
  const File folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || fsync(folder.fd()) != 0) return failed("sync folder");
  return true;
}

uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max) {
  const Json::Value& value = object[key];
  if (!value.isUInt() || value.asUInt() > max)
    throw std::runtime_error(std::string("\"") + key + "\" is not a number up to " +
                             std::to_string(max));
  return value.asUInt();
}

uint32_t numberMember(const Json::Value& object, const char* key, uint32_t max, uint32_t absent) {
  return object.isMember(key) ? numberMember(object, key, max) : absent;
}

bool boolMember(const Json::Value& object, const char* key, bool absent) {
  if (!object.isMember(key)) return absent;
  if (!object[key].isBool())
    throw std::runtime_error(std::string("\"") + key + "\" is not true or false");
  return object[key].asBool();
}

}  // namespace atschost
