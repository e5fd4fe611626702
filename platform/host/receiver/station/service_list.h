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

// The services, ordered by major number, minor number and frequency. Any thread. Readers never wait
// for the disk.
class ServiceList {
 public:
  // Loads the list of the last run.
  explicit ServiceList(const std::string& stateFolder);

  // Replaces the listed services of one carrier by those found on it. A service that is found again
  // keeps record number, flags, favourites and audio track. A service that was added by hand also
  // keeps its name, and stays listed without streams when it is not found. A service that was
  // removed and is found again in the same run gets its flags, favourites and audio track back.
  struct Change {
    size_t deleted = 0;
    size_t added = 0;
    size_t updated = 0;
    std::set<uint16_t> sourceIds;  // of added services, and of services whose source id changed
    bool any() const { return deleted + added + updated > 0; }
  };
  Change replace(uint32_t source, uint32_t frequency, std::vector<Service> found);

  // Changes by the viewer. Each function stores the list first. When that fails or there is no such
  // service, it returns false and changes nothing.
  //
  // Adds the service with this number, source, frequency, type, flags and name by hand. If the
  // service is listed, sets its flags and, unless empty, its name.
  bool add(const Service& service);
  bool setFlags(uint32_t source, uint32_t record, uint32_t flags, uint32_t favourites);
  bool setAudio(const ServiceKey& key, uint8_t track);
  // Removes all services of a source, and the remembered viewer data of services of this source
  // that carriers removed. When the shortened list is in the file, calls `stored` under the lock of
  // the file; `stored` calls its argument to change the list.
  using Stored = std::function<void(const std::function<void()>& change)>;
  bool reset(uint32_t source, const Stored& stored);

  // Reloads the file. Returns false and changes nothing when there is no usable file.
  bool reload();

  // Calls `visit` for each service of a source, in order, until it returns false. `visit` runs
  // under the lock of the list and must not call the list.
  void visit(uint32_t source, const std::function<bool(const Service&)>& visit) const;

  std::optional<Service> find(const ServiceKey& key) const;

  // Returns a number that changes with the list.
  unsigned generation() const { return generation_; }

  // Stores the list if it has changed. Returns false on failure.
  bool store();

 private:
  bool change(
      const std::function<bool(std::vector<Service>& list)>& edit,
      const Stored& stored = [](const auto& commit) { commit(); }) EXCLUDES(mutex_);

  mutable Mutex mutex_;
  std::vector<Service> services_ GUARDED_BY(mutex_);
  // Services with viewer data that a carrier removed from the list.
  std::map<ServiceKey, Service> dropped_ GUARDED_BY(mutex_);
  std::atomic<unsigned> generation_{0};
  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_SERVICE_LIST_H_
