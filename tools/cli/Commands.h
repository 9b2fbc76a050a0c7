// The commands of nuvmidi, each in a file of its own. Each returns 0 or an exit code
// after printing its one message.
#ifndef NUVMIDI_CLI_COMMANDS_H
#define NUVMIDI_CLI_COMMANDS_H

#include "CommandLine.h"

namespace nuvcli {

class Session;

int RunDevices(Session& session, const Action& action);
int RunMonitor(Session& session, const Action& action);
int RunThru(Session& session, const Action& action);
int RunPlay(Session& session, const Action& action);
int RunSend(Session& session, const Action& action);
int RunQuery(Session& session, const Action& action);
int RunFonts(Session& session, const Action& action);
int RunConnect(Session& session, const Action& action); // connect and disconnect
// Needs no library: renders run on their own.
int RunRender(const GlobalOptions& options, const Action& action);

// Runs one command (a script has been read into its commands before).
int RunAction(Session& session, const Action& action);

} // namespace nuvcli

#endif
