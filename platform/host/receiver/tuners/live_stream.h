// Receives one content of the file of the tuned carrier.
#ifndef ATSC_HOST_RECEIVER_TUNERS_LIVE_STREAM_H_
#define ATSC_HOST_RECEIVER_TUNERS_LIVE_STREAM_H_

#include "receiver/air/air.h"
#include "receiver/events/alerts.h"
#include "receiver/stream/demux.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver/tuners/carrier_follower.h"
#include "receiver/tuners/guide_reporter.h"
#include "receiver/tuners/programme_watch.h"
#include "receiver/tuners/service_reporter.h"
#include "receiver/tuners/stream_reader.h"
#include "receiver/tuners/time_reporter.h"
#include "receiver/tuners/tuning.h"

namespace atschost {

// One thread.
class LiveStream {
 public:
  // All but `id` must outlive the object.
  LiveStream(Tuning& tuning, Alerts& alerts, ProgrammeWatch& programmes, const File& file,
             const StreamId& id);

  // Returns when the carrier is left or the file has changed.
  void run();

 private:
  void onPacket(const uint8_t* packet);
  const char* pushPsip(const Section& section);
  bool hasTables() const;
  void tick();
  void endPass();
  void endHead();
  void update();

  Tuning& tuning_;
  Alerts& alerts_;
  ProgrammeWatch& programmes_;
  StreamReader reader_;
  bool locked_ = false;
  bool inHead_ = true;  // until the tables were read, the stream is read fast
  CarrierFollower carrier_;
  ServiceReporter services_;
  PsipDecoder psip_;
  GuideReporter guide_;
  TimeReporter time_;
  Demux demux_;  // last: uses the others
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_LIVE_STREAM_H_
