// Functions that the subcommands of "atsc-tv parental" share.
#ifndef ATSC_TV_COMMANDS_PARENTAL_H_
#define ATSC_TV_COMMANDS_PARENTAL_H_

#include <CLI/CLI.hpp>
#include <string>

#include "commands/commands.h"

namespace apps::tv {

// Ends the message about a failure whose reason only the service knows.
inline constexpr const char* kSeeLog = "; the service's log says why";

// Returns a client after the service has started its receiver. Throws Failure.
Client startClient(const CommonOptions& common);

// Sends a command. Throws Failure with the message `failure` if the service reports an error.
void demand(const Client& client, const Json::Value& request, const std::string& failure);

// Switches parental control on if it is off, and prints that. Without parental control, limits have
// no effect.
void switchOn(const Client& client);

// Makes the service store its settings. Called last, after the change was printed. Throws Failure.
void storeAll(const Client& client);

// Adds a subcommand to "atsc-tv parental". `run` becomes the action if it is chosen.
CLI::App* addParentalCommand(CLI::App& parental, Action& action, const char* word, const char* help,
                             const Action& run);

// Add the subcommands that have files of their own to "atsc-tv parental".
AddCommand addParentalLimits;  // limit, block, allow
AddCommand addParentalCheck;

}  // namespace apps::tv

#endif  // ATSC_TV_COMMANDS_PARENTAL_H_
