#include "television/pin.h"

#include <crypt.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>
#include <utility>

#include "common/database_files.h"
#include "common/json.h"
#include "http/random.h"

namespace web {
namespace {

namespace fs = std::filesystem;

constexpr int kFreeGuesses = 3;
constexpr std::chrono::hours kLongestWait(1);
constexpr std::chrono::minutes kGrantLasts(10);
constexpr size_t kMaxGrants = 64;
constexpr const char* kMethod = "$y$";  // yescrypt
// 4 MB for a moment. More would not protect a text of so few digits, but burden a set.
constexpr unsigned long kCost = 3;
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

bool isPin(const std::string& text) {
  return text.size() >= 4 && text.size() <= 8 &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// Returns the hash of a PIN with the salt and the parameters of `setting`, empty after an error.
std::string hashOf(const std::string& pin, const std::string& setting) {
  const auto data = std::make_unique<crypt_data>();
  const char* const hash = crypt_r(pin.c_str(), setting.c_str(), data.get());
  std::string text = hash != nullptr && hash[0] == '$' ? hash : "";
  explicit_bzero(data.get(), sizeof *data);
  return text;
}

std::string newSetting() {
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  // Takes the salt from the system's random numbers.
  return crypt_gensalt_rn(kMethod, kCost, nullptr, 0, setting, sizeof setting) != nullptr ? setting
                                                                                          : "";
}

// The time to compare does not tell how much is the same.
bool isSameText(const std::string& a, const std::string& b) {
  unsigned difference = a.size() == b.size() ? 0 : 1;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

class OpenFile {
 public:
  OpenFile(const std::string& path, int flags, mode_t mode = 0)
      : descriptor_(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode)) {}
  ~OpenFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int get() const { return descriptor_; }

 private:
  const int descriptor_;
};

// Reads a file of this user that nobody else can read or write. Returns why it failed, else null.
const char* readOwn(const OpenFile& file, std::string* text) {
  constexpr size_t kMaxSize = 4096;
  struct stat status;
  if (file.get() < 0 || fstat(file.get(), &status) != 0) return strerror(errno);
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  if (status.st_uid != geteuid()) return "it belongs to another user";
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) return "other users may use it";
  text->resize(kMaxSize);
  const ssize_t size = ::read(file.get(), text->data(), text->size());
  if (size < 0) return strerror(errno);
  text->resize(static_cast<size_t>(size));
  return nullptr;
}

bool writeAll(int descriptor, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t size = ::write(descriptor, text.data() + done, text.size() - done);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return false;
    done += static_cast<size_t>(size);
  }
  return fsync(descriptor) == 0;
}

}  // namespace

Pin::Pin(std::string file, std::chrono::seconds firstWait)
    : file_(std::move(file)), firstWait_(firstWait) {}

// An unreadable file counts as one with a PIN that nobody knows.
Pin::Content Pin::read() {
  std::string text;
  const char* fault = nullptr;
  Content content;
  {
    const OpenFile file(file_, O_RDONLY | O_NONBLOCK);
    if (file.get() < 0 && errno == ENOENT) return content;
    fault = readOwn(file, &text);
  }
  if (fault == nullptr) {
    const Json::Value json = apps::parseJson(text).value_or(Json::Value());
    Record& record = content.record;
    if (json.isObject() && json["hash"].isString() && json["wrong"].isInt() &&
        json["until"].isInt64()) {
      record = {json["hash"].asString(), json["wrong"].asInt(), json["until"].asInt64()};
    }
    if (record.hash.compare(0, strlen(kMethod), kMethod) != 0 || record.wrong < 0 ||
        crypt_checksalt(record.hash.c_str()) != CRYPT_SALT_OK) {
      fault = "its content is damaged";
    }
  }
  content.state = fault != nullptr ? State::kBroken : State::kSet;
  if (fault != nullptr && !loggedBroken_.exchange(true)) {
    std::cerr << "atsc-web: nothing is unlocked until " << file_ << " is removed: " << fault
              << std::endl;
  }
  return content;
}

// The file is replaced as a whole: after a failure or a loss of power the old one is there.
bool Pin::write(const Record& record) try {
  Json::Value json;
  json["hash"] = record.hash;
  json["wrong"] = record.wrong;
  json["until"] = Json::Int64{record.until};
  const std::string path = apps::refusePlanted(file_);
  const std::string folder = fs::path(path).parent_path().string();
  const std::string fresh = path + ".new";
  fs::create_directories(folder);
  unlink(fresh.c_str());
  bool done = false;
  {
    const OpenFile file(fresh, O_WRONLY | O_CREAT | O_EXCL, kOwnerOnly);
    done = file.get() >= 0 && writeAll(file.get(), apps::compactJson(json) + "\n");
  }
  done = done && rename(fresh.c_str(), path.c_str()) == 0;
  if (done) {
    const OpenFile directory(folder, O_RDONLY | O_DIRECTORY);
    done = directory.get() >= 0 && fsync(directory.get()) == 0;
  }
  if (!done) std::cerr << "atsc-web: " << path << ": " << strerror(errno) << std::endl;
  return done;
} catch (const std::exception& error) {
  std::cerr << "atsc-web: " << error.what() << std::endl;
  return false;
}

std::chrono::seconds Pin::waitAfter(int wrong) const {
  std::chrono::seconds wait(0);
  for (int i = kFreeGuesses; i <= wrong && wait < kLongestWait; ++i) {
    wait = wait.count() == 0 ? firstWait_ : 2 * wait;
  }
  return std::min<std::chrono::seconds>(wait, kLongestWait);
}

// A clock that was set back does not make the wait longer.
double Pin::waitOf(const Record& record) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const double left = static_cast<double>(record.until) - static_cast<double>(now.tv_sec) -
                      static_cast<double>(now.tv_nsec) / 1e9;
  return std::clamp(left, 0.0, static_cast<double>(waitAfter(record.wrong).count()));
}

Pin::Status Pin::status() {
  const Content content = read();
  return {content.state, content.state == State::kSet ? waitOf(content.record) : 0};
}

Pin::Answer Pin::checkLocked(const std::string& pin) {
  Content content = read();
  if (content.state == State::kBroken) return Answer::kBroken;
  if (content.state == State::kNone) return Answer::kNone;
  Record& record = content.record;
  if (waitOf(record) > 0) return Answer::kWait;
  if (!isPin(pin)) return Answer::kForm;
  // A guess counts before it is looked at: to end the program at the right moment gains nothing.
  const int before = record.wrong;
  record.wrong = std::min(before, 1000) + 1;
  record.until = time(nullptr) + 1 + waitAfter(record.wrong).count();
  if (!write(record)) return Answer::kFailed;
  if (!isSameText(hashOf(pin, record.hash), record.hash)) return Answer::kWrong;
  record.wrong = 0;
  record.until = 0;
  return write(record) ? Answer::kRight : Answer::kFailed;
}

Pin::Answer Pin::check(const std::string& pin) {
  const std::lock_guard<std::mutex> lock(checking_);
  return checkLocked(pin);
}

Pin::Answer Pin::set(const std::string& pin, const std::string& old) {
  const std::lock_guard<std::mutex> lock(checking_);
  if (!isPin(pin)) return Answer::kForm;
  const State state = read().state;
  if (state == State::kBroken) return Answer::kBroken;
  if (state == State::kSet) {
    const Answer answer = checkLocked(old);
    if (answer != Answer::kRight) return answer == Answer::kForm ? Answer::kWrong : answer;
  }
  const std::string hash = hashOf(pin, newSetting());
  if (hash.empty() || !write({hash})) return Answer::kFailed;
  loggedBroken_ = false;
  const std::lock_guard<std::mutex> grantsLock(mutex_);
  grants_.clear();
  return Answer::kRight;
}

std::string Pin::grant() {
  const std::lock_guard<std::mutex> lock(mutex_);
  while (grants_.size() >= kMaxGrants) {
    grants_.erase(std::min_element(grants_.begin(), grants_.end(),
                                   [](auto& a, auto& b) { return a.second < b.second; }));
  }
  std::string grant = randomHex(16);
  grants_[grant] = Clock::now() + kGrantLasts;
  return grant;
}

bool Pin::isGranted(const std::string& grant) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = grants_.find(grant);
  if (found == grants_.end()) return false;
  const Clock::time_point now = Clock::now();
  if (found->second <= now) {
    grants_.erase(found);
    return false;
  }
  found->second = now + kGrantLasts;
  return read().state == State::kSet;
}

void Pin::endGrant(const std::string& grant) {
  const std::lock_guard<std::mutex> lock(mutex_);
  grants_.erase(grant);
}

}  // namespace web
