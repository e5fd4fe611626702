// atsc-tv time: shows and sets the receiver's clock.
#include <iostream>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "service/receiver_clock.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

struct TimeOptions {
  std::string zone;  // empty: unchanged
  std::string mode;  // as in the command; empty: unchanged
};

int time(const CommonOptions& common, const TimeOptions& options) {
  const Client client = common.client();
  client.requireService();
  if (!options.zone.empty()) {
    Json::Value request = command("TIME", "SETTIMEZONE");
    request["zone"] = options.zone;
    client.send(request);
  }
  if (!options.mode.empty()) {
    Json::Value request = command("TIME", "SETMODE");
    request["mode"] = options.mode;
    client.send(request);
  }
  const ReceiverClock clock = readClock(client);
  // These commands do not report errors.
  if ((!options.zone.empty() && clock.zone != options.zone) ||
      (!options.mode.empty() && clock.automatic != (options.mode == "AUTO"))) {
    throw Failure(kFailure, "the clock's setting could not be changed; the service's log says why");
  }
  std::cout << dateWords(clock) << ' ' << settingWords(clock) << '\n';
  return kSuccess;
}

}  // namespace

void addTime(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("time", "Show the receiver's clock, or set its time zone and mode");
  command->footer(
      "Zones: SKST Korea, TST Taiwan, GMT Greenwich, NST Newfoundland, AST Atlantic, EST Eastern,\n"
      "CST Central, MST Mountain, PST Pacific, AKST Alaska, HAST Hawaii-Aleutian, HST Hawaii.");
  auto options = std::make_shared<TimeOptions>();
  command->add_option("--zone", options->zone, "Time zone, case-insensitive")
      ->transform(CLI::IsMember(
          {"SKST", "TST", "GMT", "NST", "AST", "EST", "CST", "MST", "PST", "AKST", "HAST", "HST"},
          CLI::ignore_case))
      ->option_text("ZONE");
  command
      ->add_option("--mode", options->mode,
                   "auto: the clock follows the broadcast; manual: it runs on by itself")
      ->transform(CLI::IsMember({"AUTO", "MANUAL"}, CLI::ignore_case))
      ->option_text("auto|manual");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return time(common, *options); };
  });
}

}  // namespace apps::tv
