// atsc-tv now: shows channel, programme, audio tracks and clock.
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "channels/audio.h"
#include "channels/channel.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "guide/guide.h"
#include "guide/guide_view.h"
#include "parental/viewing.h"
#include "service/receiver_clock.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

std::string programmeLine(const Programme& programme, const ReceiverClock& clock) {
  constexpr const char* kDay = "%a ";
  constexpr const char* kTimeOfDay = "%H:%M";
  const std::string day = receiverTime(clock, programme.start, kDay);
  return (programme.start > clock.utc && day != receiverTime(clock, clock.utc, kDay) ? day : "") +
         receiverTime(clock, programme.start, kTimeOfDay) + '-' +
         receiverTime(clock, programme.end, kTimeOfDay) + "  " + titleOf(programme) +
         ratingAndCaptions(programme);
}

void printProgrammes(const CommonOptions& common, const Channel& channel,
                     const ReceiverClock& clock) {
  std::vector<Programme> programmes =
      readProgrammes(common.eventDatabase(), *channel.source, channel.key(), clock.utc, 2);
  std::cout << "Now      ";
  if (!programmes.empty() && programmes.front().start <= clock.utc) {
    std::cout << programmeLine(programmes.front(), clock) << '\n';
    programmes.erase(programmes.begin());
  } else {
    std::cout << kNoInformation << '\n';
  }
  const Viewing viewing = askViewing(common.client());
  if (const ViewingWords words = viewingWords(common, channel, viewing);
      viewing != Viewing::kAllowed || words.unlocked) {
    std::cout << "         " << words.state << '\n';
  }
  if (!programmes.empty()) {
    std::cout << "Next     " << programmeLine(programmes.front(), clock) << '\n';
  }
}

int now(const CommonOptions& common) {
  const Client client = common.client();
  client.requireService();
  const std::string database = common.channelDatabase();
  const std::optional<Channel> current = currentChannel(client);
  const std::optional<Channel> channel = current ? listed(database, *current) : std::nullopt;
  const ReceiverClock clock = readClock(client);
  if (current) {
    const Channel& known = channel ? *channel : *current;
    std::cout << "Channel  " << channelLine(known) << streamRemark(known) << '\n'
              << "         " << placeWords(known) << '\n';
  } else {
    std::cout << "Channel  none; atsc-tv scan finds channels, atsc-tv play plays one\n";
  }
  if (channel) {
    printProgrammes(common, *channel, clock);
    printAudio(std::cout, *channel, preferredLanguages(client), "Audio    ");
  }
  std::cout << "Clock    " << dateWords(clock) << ' ' << settingWords(clock) << '\n';
  if (current && !channel) throw notListed(database, *current);
  return kSuccess;
}

}  // namespace

void addNow(CLI::App& app, Action& action) {
  app.add_subcommand("now", "Show the channel, its programme, the audio tracks and the clock")
      ->callback([&action] { action = now; });
}

}  // namespace apps::tv
