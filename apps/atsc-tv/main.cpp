// atsc-tv: a TV application for the terminal.

#include <CLI/CLI.hpp>
#include <clocale>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "common/database_files.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

constexpr AddCommand* kCommands[] = {
    addScan, addChannels, addGuide, addPlay,     addUp,     addDown, addStop,  addNow, addEdit,
    addAdd,  addAudio,    addTime,  addParental, addUnlock, addEas,  addWatch, addSend};

constexpr const char* kFooter =
    "The options of atsc-tv itself (atsc-tv --help) may also follow a subcommand.\n"
    "Exit status: 0 success; 1 failure; 2 wrong arguments; 3 no service runs: start atsc-service;\n"
    "4 another TV application is registered.";

// Writes one line for each option: its value, and whether the option is required. Help texts name
// the options that exclude each other.
class HelpFormatter final : public CLI::Formatter {
 public:
  std::string make_option_opts(const CLI::Option* option) const override {
    const std::string value = option->get_option_text();
    return (value.empty() ? "" : ' ' + value) + (option->get_required() ? " (required)" : "");
  }
};

// Describes an error in the command line for the user.
std::string faultOf(const CLI::App& app, const CLI::ParseError& error) {
  const std::string text = error.what();
  if (const std::vector<std::string> rest = app.remaining(true);
      !rest.empty() && (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                        dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr)) {
    return "unknown argument '" + rest.front() + "'";
  }
  const std::string missing = " missing";
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr &&
      text.size() > missing.size() &&
      text.compare(text.size() - missing.size(), missing.size(), missing) == 0) {
    return text.substr(0, text.find(':')) + " needs a value";
  }
  return text;
}

// Returns a hint at the help for the command line.
std::string helpOf(const CLI::App& app) {
  std::string words;
  for (auto chosen = app.get_subcommands(); !chosen.empty();
       chosen = chosen.front()->get_subcommands()) {
    words += chosen.front()->get_name() + ' ';
  }
  return "; see atsc-tv " + words + "--help";
}

int run(int argc, char** argv) {
  // The databases hold UTF-8, whatever the user's locale is.
  setlocale(LC_CTYPE, "C.UTF-8");
  CLI::App app(
      "A TV application for the terminal: commands to the ATSC service, its callbacks, its "
      "channel list and its programme guide.",
      "atsc-tv");
  app.set_version_flag("--version", "atsc-tv " ATSC_VERSION);
  app.formatter(std::make_shared<HelpFormatter>());
  app.require_subcommand(1);
  app.fallthrough();
  CommonOptions common;
  app.add_option("--db", common.db, apps::kDatabaseFolderHelp)->option_text("DIR");
  app.add_flag("--verbose", common.verbose,
               "Show the JSON texts of commands, replies and callbacks, each in one line");
  Action action;
  for (AddCommand* add : kCommands) add(app, action);
  app.footer(kFooter);
  for (CLI::App* subcommand : app.get_subcommands(nullptr)) {
    const std::string own = subcommand->get_footer();
    subcommand->footer((own.empty() ? "" : own + "\n\n") + kFooter);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    throw Failure(kUsage, faultOf(app, error) + helpOf(app));
  }
  const int status = action(common);
  std::cout.flush();
  if (!std::cout) throw Failure(kFailure, "cannot write to standard output");
  return status;
}

}  // namespace

}  // namespace apps::tv

int main(int argc, char** argv) {
  int status = apps::tv::kFailure;
  std::string message;
  try {
    return apps::tv::run(argc, argv);
  } catch (const apps::tv::Failure& failure) {
    status = failure.status();
    message = failure.what();
  } catch (const std::exception& error) {
    message = error.what();
  }
  std::cout.flush();
  std::cerr << "atsc-tv: " << apps::printable(message) << '\n';
  return status;
}
