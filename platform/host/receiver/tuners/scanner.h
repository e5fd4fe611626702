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

// Runs one scan at a time, each on a thread of its own: whoever stops or starts one waits for no
// callback. The callback of a stopped scan only delays what the next one reports.
class Scanner {
 public:
  // What a scan has changed.
  struct Outcome {
    bool services = false;         // the service list
    bool guide = false;            // a guide was received, changed or not
    bool guidePartial = false;     // and of one not all that is announced
    std::set<uint16_t> sourceIds;  // whose guide is another one
    // Source, frequency and source id of services that are listed anew.
    std::set<std::tuple<uint32_t, uint32_t, uint16_t>> listed;
  };
  struct Hooks {
    // Told of each frequency before it is read, on the scan thread and under the scanner's lock:
    // after stop() no more frequency is tuned.
    std::function<void(uint32_t source, uint32_t frequency)> tune;
    // Takes what else than services was found on a carrier, on the scan thread.
    std::function<void(uint32_t source, uint32_t frequency, CarrierResult& found, Outcome& outcome)>
        take;
    // After the end was reported and before another scan reports anything; or by stop(), under the
    // scanner's lock.
    std::function<void(const Outcome& outcome)> ended;
  };

  Scanner(const Air& air, Clock& clock, ServiceList& list, Hooks hooks);
  ~Scanner();

  // As AICS_start_search. False when refused.
  bool start(const AICS_search_request& request, AICS_scan_callback callback);

  // As AICS_stop_scan. False when no search runs; one whose end is being reported runs no longer.
  bool stop();

  bool isRunning() const;

  // Stops for good and joins the threads of all scans. With `patience` for each, detaches
  // those whose callback does not return in time; in any case the calling one.
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
  mutable Mutex mutex_;  // also of every job
  CondVar changed_;
  // The jobs with a thread that has not been joined.
  std::list<std::shared_ptr<Job>> jobs_ GUARDED_BY(mutex_);
  // Reports and changes the list; null when none does.
  std::shared_ptr<Job> running_ GUARDED_BY(mutex_);
  bool shutDown_ GUARDED_BY(mutex_) = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_
