#include "receiver/control/presentation.h"

#include <algorithm>
#include <vector>

#include "aiaud.h"

namespace atschost {
namespace {

const char* const kDualModes[] = {"stereo", "left", "right", "mixed"};

std::string describePicture(const Service& service, bool open) {
  if (!open) return "picture closed";
  const auto video = std::find_if(service.streams.begin(), service.streams.end(), isVideo);
  return video == service.streams.end() ? "no video" : "video PID " + std::to_string(video->pid);
}

std::string describeSound(const std::vector<AISRV_pid_info>& tracks, uint8_t number,
                          uint32_t dualMode) {
  if (number == 0) return ", no audio";
  const AISRV_pid_info& track = tracks[number - 1u];
  const std::string language = trackLanguage(track);
  std::string text = ", audio track " + std::to_string(number) + " (PID " +
                     std::to_string(track.pid) + ", " +
                     (language.empty() ? "no language" : language) + ")";
  if (dualMode != AIAUD_DUAL_STEREO) text += std::string(", dual mono ") + kDualModes[dualMode];
  return text;
}

}  // namespace

Presentation present(const Service& service, const Gate& gate, bool pictureOpen,
                     const AudioLanguages& languages, uint32_t dualMode) {
  const std::string blocked = gate.whyBlocked();
  if (gate.isClosed() || !blocked.empty()) {
    const std::string why = !gate.isClosed()  ? "blocked: " + blocked
                            : blocked.empty() ? "locked"
                                              : "locked; blocked: " + blocked;
    return {0, why + "; no picture, no sound"};
  }
  const auto tracks = audioTracks(service.streams);
  const uint8_t number = chooseTrack(tracks, service.audio, languages);
  return {number, describePicture(service, pictureOpen) + describeSound(tracks, number, dualMode)};
}

}  // namespace atschost
