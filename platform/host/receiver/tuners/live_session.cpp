#include "receiver/tuners/live_session.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "process/log.h"
#include "receiver/tuners/live_stream.h"

namespace atschost {
namespace {

constexpr std::chrono::milliseconds kFileInterval(250);  // between two looks for the file

}  // namespace

void receiveCarrier(Tuning& tuning) {
  const TunerEnvironment& environment = tuning.environment();
  Alerts alerts(environment.events, environment.alertSettings, tuning.source());
  ProgrammeWatch programmes(tuning);
  int logged = 0;  // the last error in the log
  while (tuning.isTuned()) {
    const std::string path = environment.air.carrierPath(tuning.source(), tuning.frequency());
    errno = ENOENT;
    const File file = path.empty() ? File() : openRegular(path);
    const auto id = file ? streamId(path, file) : std::nullopt;
    if (id) {
      LiveStream(tuning, alerts, programmes, file, *id).run();
      continue;
    }
    if (const int error = errno; error != ENOENT && error != ENOTDIR && error != logged) {
      log().Warn("%s: no lock: %s", path.c_str(), std::strerror(error));
      logged = error;
    }
    alerts.stop();
    tuning.setLocked(false);
    environment.looked();
    tuning.pauseUntil(std::chrono::steady_clock::now() + kFileInterval);
  }
  alerts.stop();
}

}  // namespace atschost
