#include "channels/audio.h"

#include "terminal/text.h"

namespace apps::tv {

PreferredLanguages preferredLanguages(const Client& client) {
  const Json::Value reply = client.ask(command("CN", "GETPREAUD"));
  const auto code = [&](const char* key) {
    return reply[key].isString() ? reply[key].asString() : "";
  };
  return {code("first"), code("second")};
}

void printAudio(std::ostream& out, const Channel& channel, const PreferredLanguages& preferred,
                const std::string& label) {
  const std::vector<AudioTrack> tracks = audioTracks(channel.audioPids);
  const size_t playing = playingTrack(channel.audioIndex, tracks, preferred);
  const std::string indent(label.size(), ' ');
  out << label;
  for (size_t i = 0; i < tracks.size(); ++i) {
    out << (i == playing ? "* " : "  ") << i + 1 << ' ' << oneLine(tracks[i].words()) << '\n'
        << indent;
  }
  if (tracks.empty()) out << "no audio tracks known\n" << indent;
  out << "preferred: " << oneLine(preferred.first);
  if (preferred.second != preferred.first) out << ", then " << oneLine(preferred.second);
  out << '\n';
}

}  // namespace apps::tv
