// Persistent settings: a file of lines "key number". The environment variable MINIMAL_STATE
// overrides its path, /mtd_rwarea/minimal_platform.txt. Only the service process uses the settings.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

#include "mutex.h"
#include "process.h"
#include "set.h"

namespace minimal {

namespace {

using Values = std::map<std::string, int32_t>;

std::string path() {
  const char* const text = getenv("MINIMAL_STATE");
  return text != nullptr ? text : "/mtd_rwarea/minimal_platform.txt";
}

bool load(Values* values) {
  std::ifstream file(path());
  if (!file) return false;
  std::string key;
  int32_t value = 0;
  while (file >> key >> value) (*values)[key] = value;
  return file.eof();
}

// Replaces the file atomically: after a power cut, either the old or the new settings are there.
bool store(const Values& values) {
  std::string text;
  for (const auto& [key, value] : values) text += key + " " + std::to_string(value) + "\n";
  const std::string name = path();
  const std::string fresh = name + ".new";
  const int file = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) return false;
  const bool written =
      ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
      ::fsync(file) == 0;
  return (::close(file) == 0) && written && std::rename(fresh.c_str(), name.c_str()) == 0;
}

struct Settings {
  Mutex mutex;
  Values values GUARDED_BY(mutex);

  Settings() { load(&values); }
};

}  // namespace

int32_t setting(const std::string& key, int32_t otherwise) {
  Settings& all = immortal<Settings>();
  const MutexLock lock(all.mutex);
  const auto found = all.values.find(key);
  return found != all.values.end() ? found->second : otherwise;
}

bool changeSettings(const std::vector<Change>& changes, Unstored unstored) {
  Settings& all = immortal<Settings>();
  const MutexLock lock(all.mutex);
  Values fresh = all.values;
  for (const Change& change : changes) fresh[change.first] = change.second;
  const bool stored = store(fresh);
  if (!stored) log().Error("%s cannot be written", path().c_str());
  if (stored || unstored == Unstored::kHolds) all.values = std::move(fresh);
  return stored;
}

bool reloadSettings() {
  Values fresh;
  if (!load(&fresh)) return false;
  Settings& all = immortal<Settings>();
  const MutexLock lock(all.mutex);
  all.values = fresh;
  return true;
}

}  // namespace minimal
