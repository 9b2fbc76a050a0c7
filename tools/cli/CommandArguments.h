// The words of each command: its name, its options, and its arguments checked into an
// Action with their ranges (channels 0 to 15, MIDI values 0 to 127, ...).
#ifndef NUVMIDI_CLI_COMMAND_ARGUMENTS_H
#define NUVMIDI_CLI_COMMAND_ARGUMENTS_H

#include <map>
#include <string>
#include <vector>

#include "CommandLine.h"

namespace nuvcli {

bool FindCommand(const std::string& name, Command& command);
const char* CommandName(Command command);
// Whether `name` (without its "--") is an option of `command`, and whether it takes a value.
bool CommandTakesOption(Command command, const std::string& name, bool& takesValue);

// Checks a command's arguments and options (by name, without "--") into `action`. False
// with a one-line `error` that begins with the command's name.
bool ParseCommandArguments(Command command, const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& options, Action& action,
                           std::string& error);

} // namespace nuvcli

#endif
