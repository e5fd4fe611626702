// Audio tracks and preferred languages.
#ifndef ATSC_TV_CHANNELS_AUDIO_H_
#define ATSC_TV_CHANNELS_AUDIO_H_

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "channels/channel.h"
#include "service/client.h"

namespace tv {

struct AudioTrack {
  std::string pid;       // texts as in the channel list, not yet printable()
  std::string language;  // ISO 639-2 code, empty if absent
  std::string coding;
  bool described = false;  // audio description, with or without the main audio

  // Returns the language and the coding as "spa AC-3 described".
  std::string words() const;
};

// Parses the column audio_pid. Returns the tracks in broadcast order.
std::vector<AudioTrack> audioTracks(const std::string& pids);

// Returns the name of a stream_type.
std::string codingName(const std::string& streamType);

// The language codes that the commands use.
struct PreferredLanguages {
  std::string first;
  std::string second;
};

PreferredLanguages preferredLanguages(const Client& client);

// Prints the tracks of a channel, one line each, with a mark on the playing track, and the
// preferred languages. The first line begins with `label`, the others with as many blanks.
void printAudio(std::ostream& out, const Channel& channel, const PreferredLanguages& preferred,
                const std::string& label);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_AUDIO_H_
