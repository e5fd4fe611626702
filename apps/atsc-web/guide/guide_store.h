// The channel lists and guides of both sources, kept up to date with the service's databases.
#ifndef ATSC_WEB_GUIDE_GUIDE_STORE_H_
#define ATSC_WEB_GUIDE_GUIDE_STORE_H_

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/database_files.h"
#include "common/source.h"
#include "guide/channel_list.h"
#include "guide/programme_table.h"

namespace web {

// Count the contents that differed from those before.
struct Versions {
  uint64_t channels = 0;
  uint64_t guide = 0;
};

// Its own thread reads the service's files, when somebody says that they have changed and when
// their times differ; nobody else does. All functions may be called by any thread.
class GuideStore {
 public:
  explicit GuideStore(apps::DatabaseFiles files);
  ~GuideStore();
  GuideStore(const GuideStore&) = delete;
  GuideStore& operator=(const GuideStore&) = delete;

  // Refresh soon. They return at once.
  void channelsChanged();
  void guideChanged();

  // Sets what is called when a version has changed, by the thread of the store. Waits for a call
  // that is running, so it must not be called by that function.
  void onRefreshed(std::function<void()> refreshed);

  Versions versions() const;

  // Returns the channels of a source, as they are now.
  std::shared_ptr<const ChannelList> channels(const apps::Source& source) const;

  ProgrammeTable& programmes(const apps::Source& source);

  // For a source "VSB" or "QAM": return a channel by its key, and what it broadcasts at a time.
  std::optional<ChannelRow> channel(const std::string& source, const std::string& key) const;
  NowNext nowNext(const std::string& source, const std::string& key, int64_t utc);

  const apps::DatabaseFiles& files() const { return files_; }

 private:
  // A file as it was when it was read.
  struct Watched {
    std::string path;
    std::optional<FileStamp> stamp;
    std::optional<uint32_t> transactions;
    std::string fault = {};  // the last one, which is not said again
  };

  void run();
  void look();
  // Calls `read` for each source if the file has changed, with null if there is no file; remembers
  // the state of the file. Counts the version if a content differs.
  using Read = bool (GuideStore::*)(ServiceFile*, const apps::Source&);
  void lookAt(Watched& watched, Read read, uint64_t Versions::*version);
  void readAll(ServiceFile* file, Read read, uint64_t Versions::*version);
  bool isUnchanged(Watched& watched, const FileStamp& now) const;
  // Return whether the content differs.
  bool readChannels(ServiceFile* file, const apps::Source& source);
  bool readGuide(ServiceFile* file, const apps::Source& source);
  bool isEnding() const;

  const apps::DatabaseFiles files_;
  Watched channelFile_, guideFile_;  // of the thread
  std::array<ProgrammeTable, 2> programmes_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool ends_ = false;
  bool isAsked_ = true;
  Versions versions_;
  std::array<std::shared_ptr<const ChannelList>, 2> channels_;

  std::mutex refreshedMutex_;
  std::function<void()> refreshed_;

  std::thread thread_;  // the last one: it uses the others
};

}  // namespace web

#endif  // ATSC_WEB_GUIDE_GUIDE_STORE_H_
