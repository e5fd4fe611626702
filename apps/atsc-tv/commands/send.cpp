// atsc-tv send: sends a JSON command unchanged.
#include <iostream>
#include <iterator>
#include <memory>

#include "commands/commands.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

int send(const CommonOptions& common, std::string command) {
  if (command == "-") {
    command.assign(std::istreambuf_iterator<char>(std::cin), {});
  }
  if (command.find('\0') != std::string::npos) {
    throw Failure(kUsage, "the command holds a NUL character");
  }
  const Reply reply = common.client().sendRaw(command);
  if (reply.text) {
    const std::string text = printable(*reply.text, true);
    std::cout << text << (text.empty() || text.back() != '\n' ? "\n" : "");
  }
  std::cout << "result " << reply.result << std::endl;
  return reply.result == 0 ? kSuccess : kFailure;
}

}  // namespace

void addSend(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "send", "Send one JSON command and print the reply text, if any, and the result");
  auto text = std::make_shared<std::string>();
  command
      ->add_option("JSON", *text,
                   "The command, for example {\"class\":\"FW\",\"command\":\"INIT\"}; - reads "
                   "standard input")
      ->required();
  command->callback([&action, text] {
    action = [text](const CommonOptions& common) { return send(common, *text); };
  });
}

}  // namespace apps::tv
