// The service list.
#ifndef ATSC_HOST_RECEIVER_STATION_SERVICE_LIST_H_
#define ATSC_HOST_RECEIVER_STATION_SERVICE_LIST_H_

#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "process/mutex.h"
#include "receiver/station/service.h"
#include "receiver/station/state_file.h"

namespace atschost {

// Ordered by major number, minor number and frequency. Any thread; readers never wait for the disk.
class ServiceList {
 public:
  // Loads the list of the last run.
  explicit ServiceList(const std::string& stateFolder);

  // Puts the services found on one carrier in the place of those listed for it. A service that is
  // found again keeps record number, flags, favourites and audio track. One that was added by hand
  // keeps its name, too, and stays listed, without streams, when it is not found. One that is taken
  // from the list and found again in the same run has flags, favourites and audio track again.
  struct Change {
    size_t deleted = 0;
    size_t added = 0;
    size_t updated = 0;
    std::set<uint16_t> sourceIds;  // of those that are added or have another one than before
    bool any() const { return deleted + added + updated > 0; }
  };
  Change replace(uint32_t source, uint32_t frequency, std::vector<Service> found);

  // What the viewer changes. Each stores the list first: false, with nothing changed, when that
  // fails or there is no such service.
  //
  // Adds by hand the service that number, source, frequency, type, flags and name describe. One
  // that is listed takes over flags and name; an empty name leaves the one that it has.
  bool add(const Service& service);
  bool setFlags(uint32_t source, uint32_t record, uint32_t flags, uint32_t favourites);
  bool setAudio(const ServiceKey& key, uint8_t track);
  // Removes all services of a source, with the marks of those that their carriers took away. Once
  // the empty list is in the file, calls `stored`, which calls the function that it is given to
  // change the list; it runs under the lock of the file.
  using Stored = std::function<void(const std::function<void()>& change)>;
  bool reset(uint32_t source, const Stored& stored);

  // Reads the file anew. False, with nothing changed, when there is none or it cannot be used.
  bool reload();

  // Calls `visit` for each service of a source, in order, until it returns false. It runs under the
  // list's lock and must not call back.
  void visit(uint32_t source, const std::function<bool(const Service&)>& visit) const;

  std::optional<Service> find(const ServiceKey& key) const;

  // Another number after each change of what is listed.
  unsigned generation() const { return generation_; }

  // Stores the list if it has changed. False on failure.
  bool store();

 private:
  bool change(
      const std::function<bool(std::vector<Service>& list)>& edit,
      const Stored& stored = [](const auto& commit) { commit(); }) EXCLUDES(mutex_);

  mutable Mutex mutex_;
  std::vector<Service> services_ GUARDED_BY(mutex_);
  // Those with marks that a carrier took from the list.
  std::map<ServiceKey, Service> dropped_ GUARDED_BY(mutex_);
  std::atomic<unsigned> generation_{0};
  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_SERVICE_LIST_H_
