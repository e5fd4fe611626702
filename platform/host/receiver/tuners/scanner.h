// The channel scan.
#ifndef ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_
#define ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <tuple>

#include "aics.h"
#include "process/mutex.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/station/service_list.h"
#include "receiver/tuners/carrier.h"

namespace atschost {

// Runs one scan at a time, each on its own thread. Starting and stopping do not wait for callbacks.
// A callback of a stopped scan only delays reports of the next scan.
class Scanner {
 public:
  // Changes made by a scan.
  struct Outcome {
    bool services = false;         // the service list
    bool guide = false;            // a guide was received, changed or not
    bool guidePartial = false;     // a guide was received in part only
    std::set<uint16_t> sourceIds;  // with a changed guide
    // Source, frequency and source id of newly listed services.
    std::set<std::tuple<uint32_t, uint32_t, uint16_t>> listed;
  };
  struct Hooks {
    // Called for each frequency before it is read, on the scan thread and under the scanner's lock:
    // no frequency is tuned after stop().
    std::function<void(uint32_t source, uint32_t frequency)> tune;
    // Receives the other data of a carrier, besides the services, on the scan thread; also that a
    // frequency has no carrier.
    std::function<void(uint32_t source, uint32_t frequency, CarrierResult& found, Outcome& outcome)>
        take;
    // Called after the end was reported and before another scan reports, or by stop() under the
    // scanner's lock.
    std::function<void(const Outcome& outcome)> ended;
  };

  Scanner(const Air& air, Clock& clock, ServiceList& list, Hooks hooks);
  ~Scanner();

  // See AICS_start_search(). Returns false when refused.
  bool start(const AICS_search_request& request, AICS_scan_callback callback);

  // See AICS_stop_scan(). Returns false when no search runs. A search that reports its end does not
  // count as running.
  bool stop();

  bool isRunning() const;

  // Stops permanently and joins the threads of all scans. With `patience` for each, detaches
  // threads whose callback does not return in time. Called on a scan thread, detaches that thread.
  void shutDown(std::optional<std::chrono::milliseconds> patience = std::nullopt) EXCLUDES(mutex_);

 private:
  struct Job;

  void run(Job& job);
  bool isStopped(const Job& job) const REQUIRES(mutex_) { return running_.get() != &job; }
  bool visit(Job& job, const RfChannel& channel) EXCLUDES(mutex_);
  bool report(Job& job, int state) EXCLUDES(mutex_);

  const Air& air_;
  Clock& clock_;
  ServiceList& list_;
  const Hooks hooks_;
  mutable Mutex mutex_;  // also guards the jobs
  CondVar changed_;
  // Jobs whose thread has not been joined.
  std::list<std::shared_ptr<Job>> jobs_ GUARDED_BY(mutex_);
  // The job that reports and changes the list, or null.
  std::shared_ptr<Job> running_ GUARDED_BY(mutex_);
  bool shutDown_ GUARDED_BY(mutex_) = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_
