#include "commands/commands.h"

namespace apps::tv {

CLI::Option* addSourceOption(CLI::App& command, std::string& source, const std::string& help) {
  return command.add_option("--src", source, help)
      ->transform(CLI::IsMember({"VSB", "QAM"}, CLI::ignore_case))
      ->option_text("VSB|QAM");
}

}  // namespace apps::tv
