#include "receiver/station/audio.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace atschost {
namespace {

bool isMain(const AISRV_pid_info& track) {
  return track.audio_kind == 0 || track.audio_kind == AISRV_AUDIO_MAIN;
}

bool isIn(const AISRV_pid_info& track, int32_t language) {
  const std::string code = trackLanguage(track);
  switch (language) {
    case AICN_LANGUAGE_ENGLISH:
      return code == "eng";
    case AICN_LANGUAGE_FRENCH:
      return code == "fre" || code == "fra";
    case AICN_LANGUAGE_SPANISH:
      return code == "spa";
    default:
      return false;
  }
}

}  // namespace

bool isVideo(const AISRV_pid_info& stream) {
  switch (stream.stream_type) {
    case 0x01:
    case 0x02:
    case 0x1B:
    case 0x24:
    case 0x80:
      return true;
    default:
      return false;
  }
}

bool isAudio(const AISRV_pid_info& stream) {
  switch (stream.stream_type) {
    case 0x03:
    case 0x04:
    case 0x0F:
    case 0x11:
    case 0x81:
    case 0x87:
      return true;
    default:
      return false;
  }
}

std::vector<AISRV_pid_info> audioTracks(const std::vector<AISRV_pid_info>& streams) {
  std::vector<AISRV_pid_info> tracks;
  std::copy_if(streams.begin(), streams.end(), std::back_inserter(tracks), isAudio);
  return tracks;
}

std::string trackLanguage(const AISRV_pid_info& track) {
  const auto& code = track.language[0] ? track.language : track.second_language;
  std::string text;
  for (const char letter : code) {
    if (!std::isalpha(static_cast<unsigned char>(letter))) return {};  // the language is logged
    text += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return text;
}

uint8_t chooseTrack(const std::vector<AISRV_pid_info>& tracks, uint8_t chosen,
                    const AudioLanguages& languages) {
  if (chosen != 0 && chosen <= tracks.size()) return chosen;
  const auto first = [&](auto wanted) {
    const auto found = std::find_if(tracks.begin(), tracks.end(), wanted);
    return found == tracks.end() ? 0 : static_cast<uint8_t>(found - tracks.begin() + 1);
  };
  for (const int32_t language : {languages.first, languages.second})
    if (const auto track = first([&](const auto& t) { return isMain(t) && isIn(t, language); }))
      return static_cast<uint8_t>(track);
  if (const auto track = first(isMain)) return static_cast<uint8_t>(track);
  return tracks.empty() ? 0 : 1;
}

}  // namespace atschost
