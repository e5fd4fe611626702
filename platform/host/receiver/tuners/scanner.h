// The channel scan.
#ifndef ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_
#define ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "aics.h"
#include "receiver/station/service_list.h"
#include "receiver/stream/frequency_plan.h"
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

  Scanner(ServiceList& list, Hooks hooks);
  ~Scanner();

  // As AICS_start_search. False when refused.
  bool start(const AICS_search_request& request, AICS_scan_callback callback);

  // As AICS_stop_scan. False when no search runs; one whose end is being reported runs no longer.
  bool stop();

  bool isRunning() const;

  // Stops for good and joins the threads of all scans. Those whose callback does not return within
  // `patience`, and the calling one, are left alone.
  void shutDown(std::chrono::milliseconds patience);

 private:
  struct Job;

  void run(Job& job);
  bool visit(Job& job, const RfChannel& channel);
  bool report(Job& job, int state);

  ServiceList& list_;
  const Hooks hooks_;
  mutable std::mutex mutex_;  // of all below, and of every job
  std::condition_variable changed_;
  std::list<std::shared_ptr<Job>> jobs_;  // with a thread that has not been joined
  std::shared_ptr<Job> running_;          // reports and changes the list; null when none does
  bool shutDown_ = false;
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_SCANNER_H_
