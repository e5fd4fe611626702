// atsc-tv watch: prints the callbacks as they arrive.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "callbacks/callback_words.h"
#include "callbacks/callbacks.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "common/json.h"
#include "parental/viewing.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// Returns the local time of day with milliseconds.
std::string timeOfDay() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local = {};
  localtime_r(&seconds, &local);
  char text[32];
  snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
           static_cast<int>(milliseconds));
  return text;
}

// Describes what is blocked and why. Returns nothing if that is no longer known.
std::optional<std::string> blockWords(const CommonOptions& common) {
  try {
    const Client quiet(false);
    const std::optional<Channel> channel = currentChannel(quiet);
    if (!channel) return std::nullopt;
    const Viewing viewing = askViewing(quiet);
    return channel->number() + ' ' + channel->name + ": " +
           (viewing == Viewing::kBlocked ? "" : "was blocked, now ") +
           viewingWords(common, *channel, viewing).sentence();
  } catch (const std::runtime_error&) {
    // The service has ended, or the database is being rewritten.
    return std::nullopt;
  }
}

// Describes a callback: "SCAN: " with its explanation or, for an unknown kind, with its members:
// "msg=START ...".
std::string readable(const CommonOptions& common, CallbackWords& words,
                     const Json::Value& message) {
  if (!message.isObject() || !message["cbtype"].isString()) return readableJson(message);
  std::string text = message["cbtype"].asString() + ":";
  if (message["cbtype"] == "PARENTAL_BLOCKED") {
    if (const std::optional<std::string> reason = blockWords(common)) return text + ' ' + *reason;
  }
  if (const std::optional<std::string> meaning = words.explain(message)) {
    return text + ' ' + *meaning;
  }
  for (const std::string& key : message.getMemberNames()) {
    if (key == "class" || key == "cbtype") continue;
    const Json::Value& value = message[key];
    text += ' ' + key + '=' + (value.isString() ? value.asString() : readableJson(value));
  }
  return text;
}

// The service sends events after a TV application has made it start its receiver.
void startEvents(const Client& client) {
  try {
    startReceiver(client);
  } catch (const Failure& failure) {
    // The caller notices and reports the end of the service.
    if (failure.status() == kNoService) return;
    std::cerr << "atsc-tv: " << failure.what() << std::endl;
  }
}

int watch(const CommonOptions& common, bool json) {
  const Client client = common.client();
  client.requireService();
  Callbacks& callbacks = Callbacks::start();
  int service = servicePid();
  std::optional<CallbackWords> words;
  if (!json) words.emplace(common.channelDatabase(), common.eventDatabase());
  startEvents(client);
  std::cerr << "atsc-tv: waiting for callbacks; Ctrl-C ends" << std::endl;
  for (;;) {
    std::string text;
    switch (callbacks.wait(Callbacks::kCheckService, &text, service)) {
      case Callbacks::Event::kInterrupt:
        if (isatty(STDERR_FILENO) == 1) std::cerr << std::endl;  // after the terminal's "^C"
        return kSuccess;
      case Callbacks::Event::kTimeout:
        if (const int now = servicePid(); now != service) {
          std::cerr << "atsc-tv: "
                    << (now == 0 ? "the service has ended; waiting for it to return"
                                 : "a service runs again")
                    << std::endl;
          service = now;
          if (now != 0) startEvents(client);
        }
        break;
      case Callbacks::Event::kMessage: {
        client.showReceived(text);
        // A text that is not JSON is printed as a string.
        const Json::Value message = parseJson(text).value_or(Json::Value(validUtf8(text)));
        if (json) {
          std::cout << compactJson(message) << std::endl;
        } else {
          std::cout << timeOfDay() << ' ' << printable(readable(common, *words, message))
                    << std::endl;
        }
      }
    }
    if (!std::cout) throw Failure(kFailure, "cannot write to standard output");
  }
}

}  // namespace

void addWatch(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "watch", "Register as the TV application and print each callback until SIGINT or SIGTERM");
  auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print only the callbacks, each as one line of JSON");
  command->callback([&action, json] {
    action = [json](const CommonOptions& common) { return watch(common, *json); };
  });
}

}  // namespace apps::tv
