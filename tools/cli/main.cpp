// nuvmidi: the command-line host of libNuvMIDI.so.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "ExitCodes.h"
#include "FileChecks.h"
#include "Library.h"
#include "MidiFileInfo.h"
#include "Report.h"
#include "Session.h"
#include "Waiter.h"

namespace nuvcli {
namespace {

// Replaces each script command by the commands it reads, so that every line is checked
// before the library starts.
int ExpandScripts(const std::vector<Action>& given, std::vector<Action>& actions) {
    for (const Action& action : given) {
        if (action.command != Command::Script) {
            actions.push_back(action);
            continue;
        }
        std::string text, error;
        const bool fromStdin = action.path == "-";
        if (fromStdin) {
            text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        } else {
            std::vector<uint8_t> bytes;
            if (!ReadWholeFile(action.path, bytes, error))
                return Fail(EXIT_BAD_FILE, "cannot read '%s': %s", action.path.c_str(),
                            error.c_str());
            text.assign(bytes.begin(), bytes.end());
        }
        if (!ParseScript(text, actions, error))
            return Fail(EXIT_USAGE, "%s: %s", fromStdin ? "standard input" : action.path.c_str(),
                        error.c_str());
    }
    return EXIT_OK;
}

// `play A B C` plays A, then B, then C: one play action each, every file checked first.
std::vector<Action> SplitPlays(const std::vector<Action>& given) {
    std::vector<Action> actions;
    for (const Action& action : given) {
        actions.push_back(action);
        actions.back().morePaths.clear();
        for (const std::string& path : action.morePaths) {
            actions.push_back(actions.back());
            actions.back().path = path;
        }
    }
    return actions;
}

int Run(const std::vector<std::string>& args) {
    const CommandLine commandLine = ParseCommandLine(args);
    if (commandLine.outcome == CommandLine::HELP) {
        Print(commandLine.text);
        return EXIT_OK;
    }
    if (commandLine.outcome == CommandLine::ERROR)
        return Fail(EXIT_USAGE, "%s", commandLine.text.c_str());
    std::vector<Action> actions;
    if (int code = ExpandScripts(commandLine.actions, actions))
        return code;
    actions = SplitPlays(actions);
    if (actions.empty())
        return EXIT_OK;
    if (int code = CheckFiles(commandLine.options, actions))
        return code;
    const auto isRender = [](const Action& action) { return action.command == Command::Render; };
    if (std::any_of(actions.begin(), actions.end(), isRender)) {
        if (!std::all_of(actions.begin(), actions.end(), isRender))
            return Fail(EXIT_USAGE, "render runs without the library: chain it only with renders");
        for (const Action& action : actions)
            if (int code = RunRender(commandLine.options, action))
                return code;
        return EXIT_OK;
    }

    Waiter waiter;
    if (!waiter.Open())
        return Fail(EXIT_FAILED, "cannot watch for signals: %s", strerror(errno));
    Library library;
    if (int code = library.Load(commandLine.options.library))
        return code;
    Session session(library, waiter);
    int code = session.Open(commandLine.options);
    for (size_t i = 0; i < actions.size() && code == EXIT_OK && !waiter.Interrupted(); ++i)
        code = RunAction(session, actions[i]);
    session.Close();
    return code;
}

} // namespace

int RunAction(Session& session, const Action& action) {
    switch (action.command) {
    case Command::Devices:
        return RunDevices(session, action);
    case Command::Monitor:
        return RunMonitor(session, action);
    case Command::Thru:
        return RunThru(session, action);
    case Command::Play:
        return RunPlay(session, action);
    case Command::Send:
        return RunSend(session, action);
    case Command::Query:
        return RunQuery(session, action);
    case Command::Fonts:
        return RunFonts(session, action);
    case Command::Connect:
    case Command::Disconnect:
        return RunConnect(session, action);
    case Command::Wait:
        session.GetWaiter().WaitFor(std::chrono::milliseconds(action.waitMs));
        return EXIT_OK;
    case Command::Script:
    case Command::Render:
        break; // expanded, or run without the library, before
    }
    return EXIT_OK;
}

} // namespace nuvcli

int main(int argc, char** argv) {
    return nuvcli::Run(std::vector<std::string>(argv + 1, argv + argc));
}
