// The subcommands, grouped by file. main.cpp has the table of all subcommands.
#ifndef ATSC_TV_COMMANDS_COMMANDS_H_
#define ATSC_TV_COMMANDS_COMMANDS_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "service/common_options.h"

namespace apps::tv {

// The action that the command line chooses. Returns the exit status; throws Failure.
using Action = std::function<int(const CommonOptions& common)>;

// Adds a subcommand to the command line. Parsing sets `action` if the subcommand is chosen.
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

// Adds the option --src to a subcommand: "VSB" or "QAM", case-insensitive.
CLI::Option* addSourceOption(CLI::App& command, std::string& source, const std::string& help);

}  // namespace apps::tv

#endif  // ATSC_TV_COMMANDS_COMMANDS_H_
