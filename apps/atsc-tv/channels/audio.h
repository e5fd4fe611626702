// Audio tracks and preferred languages.
#ifndef ATSC_TV_CHANNELS_AUDIO_H_
#define ATSC_TV_CHANNELS_AUDIO_H_

#include <ostream>
#include <string>

#include "channels/channel.h"
#include "common/audio_tracks.h"
#include "service/client.h"

namespace apps::tv {

PreferredLanguages preferredLanguages(const Client& client);

// Prints the tracks of a channel, one line each, with a mark on the playing track, and the
// preferred languages. The first line begins with `label`, the others with as many blanks.
void printAudio(std::ostream& out, const Channel& channel, const PreferredLanguages& preferred,
                const std::string& label);

}  // namespace apps::tv

#endif  // ATSC_TV_CHANNELS_AUDIO_H_
