#include "common/audio_tracks.h"

#include <algorithm>

#include "common/text.h"

namespace apps {
namespace {

// Values of stream_type in ISO/IEC 13818-1, and private values of A/53 and SCTE 57.
struct Coding {
  const char* streamType;
  const char* name;
};
constexpr Coding kCodings[] = {
    {"1", "MPEG-1"},  {"2", "MPEG-2"}, {"3", "MPEG-1"},          {"4", "MPEG-2"},
    {"15", "AAC"},    {"17", "LATM"},  {"27", "H.264"},          {"36", "HEVC"},
    {"128", "DC-II"}, {"129", "AC-3"}, {"135", "Enhanced AC-3"},
};

// ISO 639-2 has two codes for French.
bool isLanguage(const std::string& code, const std::string& preferred) {
  return code == preferred || (code == "fra" && preferred == "fre");
}

}  // namespace

std::string AudioTrack::words() const {
  return (language.empty() ? "" : language + ' ') + coding + (described ? " described" : "");
}

std::vector<AudioTrack> audioTracks(const std::string& pids) {
  std::vector<AudioTrack> tracks;
  for (const std::string& entry : split(pids, ',')) {
    std::vector<std::string> fields = split(entry, '_');
    const bool described = fields.size() > 3;
    fields.resize(3);
    tracks.push_back({fields[0], fields[1], codingName(fields[2]), described});
  }
  return tracks;
}

std::string codingName(const std::string& streamType) {
  for (const Coding& coding : kCodings) {
    if (streamType == coding.streamType) return coding.name;
  }
  return "type " + streamType;
}

size_t playingTrack(int64_t chosen, const std::vector<AudioTrack>& tracks,
                    const PreferredLanguages& preferred) {
  if (chosen >= 1 && chosen <= static_cast<int64_t>(tracks.size())) {
    return static_cast<size_t>(chosen - 1);
  }
  for (const char* language : {preferred.first.c_str(), preferred.second.c_str(), ""}) {
    const auto found = std::find_if(tracks.begin(), tracks.end(), [&](const AudioTrack& track) {
      return !track.described && (*language == '\0' || isLanguage(track.language, language));
    });
    if (found != tracks.end()) return static_cast<size_t>(found - tracks.begin());
  }
  return 0;
}

}  // namespace apps
