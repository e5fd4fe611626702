// atsc-tv unlock: unlocks the playing programme or channel after the password was given.
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "channels/channel.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "parental/viewing.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

// Pauses before each attempt: the unlock takes effect only after a pending channel change has
// ended.
constexpr std::chrono::milliseconds kPauses[] = {
    std::chrono::milliseconds(0), std::chrono::milliseconds(300), std::chrono::milliseconds(700)};

int unlock(const CommonOptions& common, bool undo) {
  const Client client = common.client();
  client.requireService();
  startReceiver(client);
  const std::optional<Channel> channel = currentChannel(client);
  if (!channel) throw Failure(kFailure, "there is no current channel");
  Json::Value request = command("PC", "PWDUNLOCK");
  request["lock_status"] = undo ? 0 : 1;
  const bool wasBlocked = askViewing(client) == Viewing::kBlocked;
  Viewing viewing = Viewing::kAllowed;
  for (const auto pause : kPauses) {
    std::this_thread::sleep_for(pause);
    client.send(request);  // the result is always 0
    viewing = askViewing(client);
    if (undo || viewing != Viewing::kBlocked) break;
  }
  const ViewingWords words = viewingWords(common, *channel, viewing);
  if (!undo && viewing == Viewing::kBlocked) {
    throw Failure(kFailure, words.sentence() +
                                "; only the channel last changed to can be unlocked, with atsc-tv "
                                "play, up or down: atsc-tv play " +
                                channel->number());
  }
  std::cout << channel->number() << ' ' << channel->name << ": ";
  if (undo) {
    std::cout << words.sentence() << words.advice << lockWords(*channel) << '\n';
    return kSuccess;
  }
  if (wasBlocked || words.unlocked) {
    std::cout << (words.unlocked ? words.sentence() : words.programme + " is unlocked")
              << "; so is what comes";
  } else {
    // Nothing was blocked, and the service does not report whether it has unlocked the channel: it
    // does so only for the channel of the last change.
    std::cout << "nothing is blocked; if the last channel change selected this channel, "
              << ((channel->flags & kLocked) != 0 ? "it opens and " : "")
              << "the following programmes are unlocked";
  }
  std::cout << ", until a channel begins to play again\n";
  return kSuccess;
}

}  // namespace

void addUnlock(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "unlock", "Unlock the playing programme or channel after the user gave the password");
  command->footer(
      "The TV application asks for the password and checks it before; the password is never sent.\n"
      "The unlock lasts for this programme and the following ones, until a channel begins to play\n"
      "again, even the same channel, playing stops, or standby begins.\n"
      "Only the channel that the last play, up or down selected can be unlocked.");
  auto undo = std::make_shared<bool>(false);
  command->add_flag("--undo", *undo, "Undo the unlock");
  command->callback([&action, undo] {
    action = [undo](const CommonOptions& common) { return unlock(common, *undo); };
  });
}

}  // namespace apps::tv
