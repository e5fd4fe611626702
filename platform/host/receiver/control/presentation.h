// Streams of a service that are output.
#ifndef ATSC_HOST_RECEIVER_CONTROL_PRESENTATION_H_
#define ATSC_HOST_RECEIVER_CONTROL_PRESENTATION_H_

#include <cstdint>
#include <string>

#include "receiver/station/audio.h"
#include "receiver/station/service.h"
#include "receiver/viewing/gate.h"

namespace atschost {

struct Presentation {
  uint8_t audioTrack = 0;  // from 1; 0 for none
  std::string text;        // for the log
};

// Chooses the streams of the playing service. `dualMode` is one of AIAUD_DUAL_*.
Presentation present(const Service& service, const Gate& gate, bool pictureOpen,
                     const AudioLanguages& languages, uint32_t dualMode);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_PRESENTATION_H_
