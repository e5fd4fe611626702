#include "guide/guide_store.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <utility>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace web {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The callbacks may go to another TV application.
constexpr milliseconds kLookInterval(1000);

// The pause after a refresh, in times of its length: many callbacks in a row shall not keep the
// processor busy with a large guide.
constexpr int kPauseFactor = 2;

size_t indexOf(const apps::Source& source) {
  return static_cast<size_t>(&source - apps::kSources.data());
}

}  // namespace

GuideStore::GuideStore(apps::DatabaseFiles files)
    : files_(std::move(files)),
      channelFile_{files_.channels, {}, {}},
      guideFile_{files_.events, {}, {}},
      programmes_{ProgrammeTable(apps::kSources[0]), ProgrammeTable(apps::kSources[1])} {
  for (auto& list : channels_) list = std::make_shared<const ChannelList>();
  thread_ = std::thread([this] { run(); });
}

GuideStore::~GuideStore() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ends_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

// Both files are looked at: a look costs nothing if a file has not changed.
void GuideStore::channelsChanged() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isAsked_ = true;
  }
  wake_.notify_all();
}

void GuideStore::guideChanged() { channelsChanged(); }

void GuideStore::onRefreshed(std::function<void()> refreshed) {
  const std::lock_guard<std::mutex> lock(refreshedMutex_);
  refreshed_ = std::move(refreshed);
}

Versions GuideStore::versions() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return versions_;
}

std::shared_ptr<const ChannelList> GuideStore::channels(const apps::Source& source) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return channels_[indexOf(source)];
}

std::optional<ChannelRow> GuideStore::channel(const std::string& source,
                                              const std::string& key) const {
  const std::shared_ptr<const ChannelList> list = channels(apps::sourceNamed(source));
  const ChannelRow* const row = list->withKey(key);
  return row == nullptr ? std::nullopt : std::optional<ChannelRow>(*row);
}

NowNext GuideStore::nowNext(const std::string& source, const std::string& key, int64_t utc) {
  return programmes(apps::sourceNamed(source)).nowNext(key, utc);
}

ProgrammeTable& GuideStore::programmes(const apps::Source& source) {
  return programmes_[indexOf(source)];
}

bool GuideStore::isEnding() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return ends_;
}

void GuideStore::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!ends_) {
    isAsked_ = false;
    lock.unlock();
    const auto begin = steady_clock::now();
    look();
    const auto pause = std::min<steady_clock::duration>(
        kPauseFactor * (steady_clock::now() - begin), kLookInterval);
    lock.lock();
    wake_.wait_for(lock, pause, [this] { return ends_; });
    wake_.wait_for(lock, kLookInterval, [this] { return ends_ || isAsked_; });
  }
}

void GuideStore::look() {
  const auto count = [this] {
    const Versions now = versions();
    return now.channels + now.guide;
  };
  const uint64_t before = count();
  lookAt(channelFile_, &GuideStore::readChannels, &Versions::channels);
  lookAt(guideFile_, &GuideStore::readGuide, &Versions::guide);
  if (count() == before) return;
  {
    const std::lock_guard<std::mutex> lock(refreshedMutex_);
    if (refreshed_) refreshed_();
  }
  try {
    for (ProgrammeTable& table : programmes_) table.tidy();
  } catch (const std::exception&) {
    guideFile_.stamp.reset();  // the copy is made anew
  }
}

void GuideStore::lookAt(Watched& watched, Read read, uint64_t Versions::*version) {
  try {
    const FileStamp now = stampOf(watched.path);
    if (isUnchanged(watched, now)) return;
    watched.stamp.reset();
    if (now.exists()) {
      ServiceFile file(watched.path);
      watched.transactions = file.transactions();
      readAll(&file, read, version);
    } else {
      readAll(nullptr, read, version);
    }
    watched.stamp = now;
    watched.fault.clear();
#ifdef __GLIBC__
    malloc_trim(0);
#endif
  } catch (const std::exception& error) {
    if (watched.fault == error.what()) return;
    watched.fault = error.what();
    std::cerr << "atsc-web: " + watched.path + ": " + watched.fault + "\n" << std::flush;
  }
}

// A table that cannot be read keeps nobody from reading that of the other source.
void GuideStore::readAll(ServiceFile* file, Read read, uint64_t Versions::*version) {
  std::exception_ptr fault;
  for (const apps::Source& source : apps::kSources) {
    try {
      if (!(this->*read)(file, source)) continue;
      const std::lock_guard<std::mutex> lock(mutex_);
      ++(versions_.*version);
    } catch (const std::exception&) {
      fault = std::current_exception();
    }
  }
  if (fault) std::rethrow_exception(fault);
}

// A file that was written just before it was read may have been written once more at the same time.
bool GuideStore::isUnchanged(Watched& watched, const FileStamp& now) const {
  if (!watched.stamp || !watched.stamp->isSame(now)) return false;
  if (watched.stamp->settled || !now.exists()) return true;
  if (!watched.transactions || ServiceFile(watched.path).transactions() != watched.transactions) {
    return false;
  }
  watched.stamp->settled = now.settled;
  return true;
}

bool GuideStore::readChannels(ServiceFile* file, const apps::Source& source) {
  std::vector<ChannelRow> rows;
  if (file != nullptr) rows = readChannelRows(*file, source, [this] { return !isEnding(); });
  if (isEnding()) return false;
  auto list = std::make_shared<const ChannelList>(std::move(rows));
  const std::lock_guard<std::mutex> lock(mutex_);
  std::shared_ptr<const ChannelList>& known = channels_[indexOf(source)];
  if (known->rows() == list->rows()) return false;
  known = std::move(list);
  return true;
}

bool GuideStore::readGuide(ServiceFile* file, const apps::Source& source) {
  return programmes(source).refresh(file, [this] { return !isEnding(); });
}

}  // namespace web
