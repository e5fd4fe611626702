// The audio tracks of a channel.
#ifndef ATSC_APPS_COMMON_AUDIO_TRACKS_H_
#define ATSC_APPS_COMMON_AUDIO_TRACKS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace apps {

struct AudioTrack {
  std::string pid;       // texts as in the channel list, not yet printable
  std::string language;  // ISO 639-2 code, empty if absent
  std::string coding;
  bool described = false;  // audio description, with or without the main audio

  // Returns the language and the coding as "spa AC-3 described".
  std::string words() const;
};

// The language codes that the commands use.
struct PreferredLanguages {
  std::string first;
  std::string second;
};

// Parses the column audio_pid. Returns the tracks in broadcast order.
std::vector<AudioTrack> audioTracks(const std::string& pids);

// Returns the name of a stream_type.
std::string codingName(const std::string& streamType);

// Returns the index of the track that the receiver plays: the track that the user chose, from 1 (0:
// none), else the first main track in a preferred language, else the first main track.
size_t playingTrack(int64_t chosen, const std::vector<AudioTrack>& tracks,
                    const PreferredLanguages& preferred);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_AUDIO_TRACKS_H_
