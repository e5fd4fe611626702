// atsc-tv eas: shows and sets which emergency alerts are shown.
#include <algorithm>
#include <array>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "channels/receiver.h"
#include "commands/commands.h"
#include "terminal/failure.h"

namespace apps::tv {
namespace {

struct Choice {
  const char* word;
  int value;
  const char* meaning;
};

struct Setting {
  const char* word;
  const char* command;
  const char* key;
  bool isBoolean;
  const char* label;
  const char* help;
  std::vector<Choice> choices;
};

const std::array<Setting, 3> kSettings = {{
    {"alerts",
     "EASUSERSETTING",
     "setting",
     false,
     "Alerts      ",
     "Select the alerts to show by their priority",
     {{"all", 0, "all but those of priority 0"},
      {"medium", 1, "of medium priority (7) and above"},
      {"high", 2, "of high priority (11) and above; 11 and 15 interrupt viewing"},
      {"maximum", 3, "of maximum priority (15) only"}}},
    {"repeats",
     "DISABLEOPTEASCHK",
     "status",
     true,
     "Repeats     ",
     "Show or hide an alert that was shown before and is sent again",
     {{"show", 1, "shown: an alert that is sent anew is shown again"},
      {"hide", 0,
       "hidden: an alert is shown once while its station is tuned; after a channel change it is "
       "shown again"}}},
    {"cable-only",
     "CABLEEASONLY",
     "status",
     true,
     "Cable only  ",
     "Show no alerts of terrestrial stations",
     {{"on", 1, "on: alerts of terrestrial stations are not shown"},
      {"off", 0, "off: alerts of terrestrial stations are shown too"}}},
}};

Json::Value request(const Setting& setting, const char* operation) {
  Json::Value value = command("EAS", setting.command);
  value["op"] = operation;
  return value;
}

const Choice* read(const Client& client, const Setting& setting) {
  const Json::Value value = client.ask(request(setting, "get"))[setting.key];
  const auto found =
      std::find_if(setting.choices.begin(), setting.choices.end(), [&](const Choice& choice) {
        return setting.isBoolean ? value == (choice.value != 0) : value == choice.value;
      });
  return found != setting.choices.end() ? &*found : nullptr;
}

void print(const Client& client, const Setting& setting) {
  const Choice* const choice = read(client, setting);
  std::cout << setting.label << (choice != nullptr ? choice->meaning : "unknown") << '\n';
}

int show(const CommonOptions& common) {
  const Client client = common.client();
  client.requireService();
  startReceiver(client);
  for (const Setting& setting : kSettings) print(client, setting);
  return kSuccess;
}

int change(const CommonOptions& common, const Setting& setting, const std::string& word) {
  const Client client = common.client();
  client.requireService();
  startReceiver(client);
  const auto choice = std::find_if(setting.choices.begin(), setting.choices.end(),
                                   [&](const Choice& each) { return word == each.word; });
  Json::Value write = request(setting, "set");
  write[setting.key] =
      setting.isBoolean ? Json::Value(choice->value != 0) : Json::Value(choice->value);
  const bool stored = client.send(write).result == 0;
  if (const Choice* const now = read(client, setting); now == nullptr || now->word != word) {
    throw Failure(kFailure, "the setting could not be changed; the service's log says why");
  }
  print(client, setting);
  if (!stored) {
    throw Failure(kFailure,
                  "the change is in force, but could not be stored: it ends with the service; the "
                  "service's log says why");
  }
  return kSuccess;
}

}  // namespace

void addEas(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand("eas", "Show or set which emergency alerts are shown");
  command->footer(
      "Settings take effect at once, even for an alert that is being shown, and are stored.");
  command->require_subcommand(0, 1);
  command->callback([&action] {
    if (!action) action = show;
  });
  for (const Setting& setting : kSettings) {
    CLI::App* const subcommand = command->add_subcommand(setting.word, setting.help);
    auto word = std::make_shared<std::string>();
    std::string words;
    std::vector<std::string> known;
    for (const Choice& choice : setting.choices) {
      words += (words.empty() ? "" : "|") + std::string(choice.word);
      known.push_back(choice.word);
    }
    subcommand->add_option("SETTING", *word, words)
        ->transform(CLI::IsMember(known, CLI::ignore_case))
        ->required();
    subcommand->callback([&action, &setting, word] {
      action = [&setting, word](const CommonOptions& common) {
        return change(common, setting, *word);
      };
    });
  }
}

}  // namespace apps::tv
