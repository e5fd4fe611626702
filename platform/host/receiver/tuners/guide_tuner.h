// The second tuner, which keeps the guide of all carriers.
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

// Reads each listed carrier once, and again when its file has become another one, on a thread of
// its own. It does not touch the service list. Any thread.
class GuideTuner {
 public:
  struct Hooks {
    // Whether somebody else receives the carrier.
    std::function<bool(uint32_t source, uint32_t frequency)> isReceived;
    std::function<void(uint32_t source, uint32_t frequency, CarrierResult& found)> take;
    // A round through the list is over, whether anything was read or not.
    std::function<void()> roundEnded;
  };

  GuideTuner(const Air& air, Clock& clock, ServiceList& services, Hooks hooks);
  ~GuideTuner();

  // Starts the thread unless it runs.
  void start();

  // Begins a round now that reads every listed carrier, even if it has been read, and longer than
  // for its guide: what comes rarely may be there. Starts the thread. False when nothing is listed.
  bool beginRound();

  // A carrier was read by somebody else.
  void note(uint32_t source, uint32_t frequency, const StreamId& stream);

  // Stops for good and joins the thread.
  void shutDown();

 private:
  using Carrier = std::pair<uint32_t, uint32_t>;  // source and frequency
  struct Seen {
    StreamId read;
    StreamId changing;  // what it was seen to become
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
  std::set<Carrier> asked_ GUARDED_BY(mutex_);  // those that beginRound() wants to be read
  Thread thread_;                               // started under the mutex
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_GUIDE_TUNER_H_
