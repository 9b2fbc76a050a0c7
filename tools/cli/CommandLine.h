// The command line of nuvmidi: global options, one command or several chained with
// --then, each with its arguments checked before the library is touched, so that a typing
// mistake never costs a library start.
#ifndef NUVMIDI_CLI_COMMAND_LINE_H
#define NUVMIDI_CLI_COMMAND_LINE_H

#include <string>
#include <vector>

namespace nuvcli {

enum class Command {
    Devices,
    Monitor,
    Thru,
    Play,
    Send,
    Query,
    Fonts,
    Connect,
    Disconnect,
    Wait,
    Script,
    Render
};

enum class FontsAction { Load, Unload, List };

struct GlobalOptions {
    std::string library = "libNuvMIDI.so.1"; // --lib
    std::string font;                        // --font: loaded on top of the default font
    std::string audioDevice;                 // --audio: ALSA PCM name
    std::string wavFile;                     // --wav: record to this file instead
    bool verbose = false;                    // -v: the library's trace log
};

// One command with its arguments checked. Only the fields its command uses are set.
struct Action {
    Command command = Command::Devices;
    std::vector<std::string> devices;   // as the user named them
    std::string path;                   // play, render, fonts load, script ("-": standard input)
    std::string output;                 // render -o: the WAV file to write
    std::vector<std::string> morePaths; // play: the files after the first, in order
    bool json = false;                  // devices --json
    bool watch = false;                 // devices --watch
    long eventLimit = 0;                // monitor --count: stop after that many events; 0 never
    int eventType = 0;                  // send, query: a MIDIEventType value
    int channel = 0;
    int param = 0;    // note or controller number
    int value = 0;    // velocity, controller value, program, pressure or bend
    long holdMs = -1; // send noteon DUR: release the note after that long; -1 keep it
    FontsAction fontsAction = FontsAction::List;
    unsigned fontId = 1; // fonts unload, fonts list
    unsigned start = 0;  // fonts list --start
    unsigned count = 0;  // fonts list --count; 0 lists them all
    long waitMs = 0;     // wait MS
};

struct CommandLine {
    enum Outcome { RUN, HELP, ERROR };
    Outcome outcome = RUN;
    GlobalOptions options;
    std::vector<Action> actions;
    std::string text; // HELP: the text to print; ERROR: the one-line message
};

// `args` without the program name.
CommandLine ParseCommandLine(const std::vector<std::string>& args);

// Appends the commands of a script, one per line; '#' starts a comment and blank lines
// are skipped. Global options and nested scripts are refused. False with `error`
// ("line N: ...") at the first line that is not a valid command.
bool ParseScript(const std::string& text, std::vector<Action>& actions, std::string& error);

// Splits a line into words at blanks; single or double quotes group, '#' outside quotes
// ends the line. False when a quote is left open.
bool SplitWords(const std::string& line, std::vector<std::string>& words);

} // namespace nuvcli

#endif
