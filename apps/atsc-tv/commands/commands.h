// The subcommands. Each lives in a file of its own; main() has the table of them.
#ifndef ATSC_TV_COMMANDS_COMMANDS_H_
#define ATSC_TV_COMMANDS_COMMANDS_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "service/common_options.h"

namespace tv {

// What the command line has chosen; returns the exit status, throws Failure.
using Action = std::function<int(const CommonOptions& common)>;

// Adds a subcommand to the command line. When it is chosen, `action` is set to what it does.
using AddCommand = void(CLI::App& app, Action& action);

AddCommand addAdd;
AddCommand addAudio;
AddCommand addChannels;
AddCommand addDown;
AddCommand addEas;
AddCommand addEdit;
AddCommand addGuide;
AddCommand addNow;
AddCommand addParental;
AddCommand addPlay;
AddCommand addScan;
AddCommand addSend;
AddCommand addStop;
AddCommand addTime;
AddCommand addUnlock;
AddCommand addUp;
AddCommand addWatch;

// Adds the option --src to a subcommand: "VSB" or "QAM", in any case of letters.
CLI::Option* addSourceOption(CLI::App& command, std::string& source, const std::string& help);

}  // namespace tv

#endif  // ATSC_TV_COMMANDS_COMMANDS_H_
