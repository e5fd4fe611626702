// Audio tracks and languages.
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
  std::string pid;       // texts as in the channel list, not yet fit for a terminal
  std::string language;  // ISO 639-2 code; empty when absent
  std::string coding;
  bool described = false;  // an audio description, with or without the main audio

  // "spa AC-3 described".
  std::string words() const;
};

// The tracks of the column audio_pid, in broadcast order.
std::vector<AudioTrack> audioTracks(const std::string& pids);

// The name of a stream_type.
std::string codingName(const std::string& streamType);

// Codes as in commands.
struct PreferredLanguages {
  std::string first;
  std::string second;
};

PreferredLanguages preferredLanguages(const Client& client);

// Writes the tracks of a channel, a line each, the one that plays marked, and the languages. The
// first line begins with `label`, the others with blanks of its length.
void printAudio(std::ostream& out, const Channel& channel, const PreferredLanguages& preferred,
                const std::string& label);

}  // namespace tv

#endif  // ATSC_TV_CHANNELS_AUDIO_H_
