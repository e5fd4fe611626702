// atsc-tv audio: shows the audio tracks of the channel and chooses one.
#include "channels/audio.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels/receiver.h"
#include "commands/commands.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

struct AudioOptions {
  uint32_t track = 0;     // 0: unchanged
  std::string dual;       // as in the command; empty: unchanged
  std::string preferred;  // one or two codes, separated by a comma; empty: unchanged
};

std::string languagesFault(const std::string& text) {
  const std::vector<std::string> codes = split(text, ',');
  const bool known = std::all_of(codes.begin(), codes.end(), [](const std::string& code) {
    return code == "eng" || code == "fre" || code == "spa";
  });
  return known && (codes.size() == 1 || codes.size() == 2)
             ? ""
             : "'" + text + "' is not one or two of eng, fre, spa, joined by a comma";
}

void prefer(const Client& client, const std::string& text) {
  const std::vector<std::string> codes = split(text, ',');
  const std::string before = preferredLanguages(client).second;
  Json::Value request = command("CN", "SETPREAUD");
  request["first"] = codes.front();
  request["second"] = codes.size() > 1 ? codes.back() : before.empty() ? codes.front() : before;
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "the languages could not be stored; the service's log says why");
  }
}

void setDual(const Client& client, const std::string& mode) {
  Json::Value request = command("AUD", "SETDUAL");
  request["mode"] = mode;
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "the dual mono mode could not be stored; the service's log says why");
  }
  std::cout << "Dual mono: " << lowerCase(mode) << '\n';
}

void choose(const Client& client, const std::optional<Channel>& channel, uint32_t track) {
  if (!channel) throw Failure(kFailure, "there is no current channel");
  const size_t count = audioTracks(channel->audioPids).size();
  if (track > count) {
    throw Failure(kFailure, channel->number() + " has no audio track " + std::to_string(track) +
                                "; it has " + std::to_string(count));
  }
  Json::Value request = command("AUD", "CHANGE");
  request["index"] = track - 1;
  if (client.send(request).result != 0) {
    throw Failure(kFailure, "track " + std::to_string(track) +
                                " cannot be played, or the choice could not be stored; the "
                                "service's log says which");
  }
}

int audio(const CommonOptions& common, const AudioOptions& options) {
  const Client client = common.client();
  client.requireService();
  const std::string database = common.channelDatabase();
  // Changes nothing if the result could not be shown.
  listedCurrentChannel(client, database);
  if (!options.preferred.empty()) prefer(client, options.preferred);
  if (!options.dual.empty()) setDual(client, options.dual);
  if (options.track != 0) choose(client, listedCurrentChannel(client, database), options.track);
  const std::optional<Channel> channel = listedCurrentChannel(client, database);
  std::cout << (channel ? channel->number() + ' ' + channel->name : "No current channel") << '\n';
  printAudio(std::cout, channel.value_or(Channel()), preferredLanguages(client), "  ");
  return kSuccess;
}

}  // namespace

void addAudio(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "audio",
      "Show the audio tracks of the channel, with a mark on the playing track, or choose a track");
  auto options = std::make_shared<AudioOptions>();
  command->add_option("N", options->track, "Play track N of the current channel from now on")
      ->check(CLI::Range(1u, 255u));
  command
      ->add_option("--dual", options->dual,
                   "Output of a track that carries two programmes (dual mono)")
      ->transform(CLI::IsMember({"STEREO", "LEFT", "RIGHT", "MIXED"}, CLI::ignore_case))
      ->option_text("stereo|left|right|mixed");
  command
      ->add_option("--prefer", options->preferred,
                   "Preferred languages, one or two of eng, fre and spa")
      ->transform(lowerCase)
      ->check(languagesFault)
      ->option_text("LANGUAGE[,LANGUAGE]");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return audio(common, *options); };
  });
}

}  // namespace apps::tv
