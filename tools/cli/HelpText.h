// The texts of --help: the program's and each command's, in the manner of alsa-utils.
#ifndef NUVMIDI_CLI_HELP_TEXT_H
#define NUVMIDI_CLI_HELP_TEXT_H

#include <string>

#include "CommandLine.h"

namespace nuvcli {

std::string ProgramHelp();
std::string CommandHelp(Command command);

} // namespace nuvcli

#endif
