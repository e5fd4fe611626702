// The second tuner, which receives the guide of all carriers.
#ifndef ATSC_HOST_RECEIVER_TUNERS_GUIDE_TUNER_H_
#define ATSC_HOST_RECEIVER_TUNERS_GUIDE_TUNER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "process/mutex.h"
#include "process/thread.h"
#include "receiver/air/air.h"
#include "receiver/station/service_list.h"
#include "receiver/tuners/carrier.h"

namespace atschost {

// Reads each listed carrier once, and again when its file has changed, on its own thread. Does not
// change the service list. Any thread.
class GuideTuner {
 public:
  struct Hooks {
    // Returns whether another tuner receives the carrier.
    std::function<bool(uint32_t source, uint32_t frequency)> isReceived;
    std::function<void(uint32_t source, uint32_t frequency, CarrierResult& found)> take;
    // Called at the end of a round through the list, whether or not a carrier was read.
    std::function<void()> roundEnded;
  };

  GuideTuner(const Air& air, Clock& clock, ServiceList& services, Hooks hooks);
  ~GuideTuner();

  // Starts the thread if it does not run.
  void start();

  // Starts a round that reads every listed carrier, even if it was read before. Reads longer than
  // for the guide, to receive tables that are rarely sent. Starts the thread. Returns false when no
  // service is listed.
  bool beginRound();

  // Called when another tuner has read a carrier.
  void note(uint32_t source, uint32_t frequency, const StreamId& stream);

  // Stops permanently and joins the thread.
  void shutDown();

 private:
  using Carrier = std::pair<uint32_t, uint32_t>;  // source and frequency
  struct Seen {
    StreamId read;
    StreamId changing;  // a change that was seen once
  };

  void run();
  void round();
  std::set<Carrier> listed() const;
  bool isDue(const Carrier& carrier);

  const Air& air_;
  Clock& clock_;
  ServiceList& services_;
  const Hooks hooks_;
  Mutex mutex_;
  CondVar changed_;
  std::map<Carrier, Seen> seen_ GUARDED_BY(mutex_);
  std::set<Carrier> asked_ GUARDED_BY(mutex_);  // requested by beginRound()
  Thread thread_;                               // started under the mutex
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_GUIDE_TUNER_H_
