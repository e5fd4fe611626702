// Choice of a service's audio stream.
#ifndef ATSC_HOST_RECEIVER_STATION_AUDIO_H_
#define ATSC_HOST_RECEIVER_STATION_AUDIO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "aicn.h"
#include "aisrv.h"

namespace atschost {

struct AudioLanguages {
  int32_t first = AICN_LANGUAGE_ENGLISH;
  int32_t second = AICN_LANGUAGE_ENGLISH;
};

bool isVideo(const AISRV_pid_info& stream);
bool isAudio(const AISRV_pid_info& stream);

// Returns the audio streams in broadcast order: track 1, 2, ...
std::vector<AISRV_pid_info> audioTracks(const std::vector<AISRV_pid_info>& streams);

// Returns the ISO 639-2 code of a track, empty when the broadcast does not give the language.
std::string trackLanguage(const AISRV_pid_info& track);

// Returns the number of the track to play, from 1; 0 when there is none. `chosen` is the viewer's
// choice, 0 for none; a track that no longer exists is ignored. Otherwise chooses the first main
// track in the first language, else in the second, else in any; else the first track. A track of
// unknown kind counts as a main track.
uint8_t chooseTrack(const std::vector<AISRV_pid_info>& tracks, uint8_t chosen,
                    const AudioLanguages& languages);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_STATION_AUDIO_H_
