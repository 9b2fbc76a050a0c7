// nuvmidi's command line: what reaches the commands, and the one-line errors that stop a
// run before the library starts.
#include <gtest/gtest.h>

#include "CommandLine.h"
#include "HelpText.h"
#include "NuvMIDITypes.h"

using namespace nuvcli;

namespace {

CommandLine Parse(std::vector<std::string> args) {
    return ParseCommandLine(args);
}

} // namespace

TEST(CliCommandLine, GlobalOptionsCountWhereverTheyStand) {
    const CommandLine line = Parse({"--lib", "/opt/libNuvMIDI.so", "play", "song.mid", "-v",
                                    "--wav=out/demo.wav", "--font", "piano.sf2"});
    ASSERT_EQ(CommandLine::RUN, line.outcome) << line.text;
    EXPECT_EQ("/opt/libNuvMIDI.so", line.options.library);
    EXPECT_EQ("out/demo.wav", line.options.wavFile);
    EXPECT_EQ("piano.sf2", line.options.font);
    EXPECT_TRUE(line.options.verbose);
    ASSERT_EQ(1u, line.actions.size());
    EXPECT_EQ(Command::Play, line.actions[0].command);
    EXPECT_EQ("song.mid", line.actions[0].path);
}

TEST(CliCommandLine, ThenChainsCommandsThatRunOnOneLibrary) {
    const CommandLine line = Parse({"send", "fluid", "noteon",  "9",      "36",
                                    "127",  "250",   "--then",  "query",  "Virtual Raw MIDI 1-0",
                                    "cc",   "3",     "7",       "--then", "fonts",
                                    "list", "2",     "--start", "10",     "--count",
                                    "5"});
    ASSERT_EQ(CommandLine::RUN, line.outcome) << line.text;
    ASSERT_EQ(3u, line.actions.size());
    const Action& send = line.actions[0];
    EXPECT_EQ(Command::Send, send.command);
    EXPECT_EQ(std::vector<std::string>{"fluid"}, send.devices);
    EXPECT_EQ(MIDI_EVENT_NOTE_ON, send.eventType);
    EXPECT_EQ(9, send.channel);
    EXPECT_EQ(36, send.param);
    EXPECT_EQ(127, send.value);
    EXPECT_EQ(250, send.holdMs);
    const Action& query = line.actions[1];
    EXPECT_EQ(Command::Query, query.command);
    EXPECT_EQ("Virtual Raw MIDI 1-0", query.devices[0]);
    EXPECT_EQ(MIDI_EVENT_CONTROL_CHANGE, query.eventType);
    EXPECT_EQ(3, query.channel);
    EXPECT_EQ(7, query.param);
    const Action& fonts = line.actions[2];
    EXPECT_EQ(FontsAction::List, fonts.fontsAction);
    EXPECT_EQ(2u, fonts.fontId);
    EXPECT_EQ(10u, fonts.start);
    EXPECT_EQ(5u, fonts.count);
}

TEST(CliCommandLine, EveryEventTakesItsOwnArguments) {
    struct Case {
        std::vector<std::string> args;
        int type, channel, param, value;
    } cases[] = {
        {{"send", "x", "noteoff", "1", "60"}, MIDI_EVENT_NOTE_OFF, 1, 60, 0},
        {{"send", "x", "noteoff", "1", "60", "64"}, MIDI_EVENT_NOTE_OFF, 1, 60, 64},
        {{"send", "x", "cc", "2", "7", "90"}, MIDI_EVENT_CONTROL_CHANGE, 2, 7, 90},
        {{"send", "x", "pgm", "15", "127"}, MIDI_EVENT_PROGRAM_CHANGE, 15, 0, 127},
        // A negative number is a value, not an option.
        {{"send", "x", "pitch", "0", "-8192"}, MIDI_EVENT_PITCH_BEND, 0, 0, -8192},
        {{"send", "x", "pressure", "4", "100"}, MIDI_EVENT_CHANNEL_PRESSURE, 4, 0, 100},
        {{"query", "x", "pitch", "5"}, MIDI_EVENT_PITCH_BEND, 5, 0, 0},
    };
    for (const Case& c : cases) {
        const CommandLine line = Parse(c.args);
        ASSERT_EQ(CommandLine::RUN, line.outcome) << c.args[2] << ": " << line.text;
        const Action& action = line.actions[0];
        EXPECT_EQ(c.type, action.eventType) << c.args[2];
        EXPECT_EQ(c.channel, action.channel) << c.args[2];
        EXPECT_EQ(c.param, action.param) << c.args[2];
        EXPECT_EQ(c.value, action.value) << c.args[2];
        EXPECT_EQ(-1, action.holdMs) << c.args[2];
    }
}

TEST(CliCommandLine, BadArgumentsStopWithOneLineNamingTheFault) {
    struct Case {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{}, "missing COMMAND"},
        {{"-v"}, "missing COMMAND"},
        {{"dance"}, "unknown command 'dance'"},
        {{"send", "fluid", "noteon", "16", "60", "100"},
         "channel '16' is not a number from 0 to 15"},
        {{"send", "fluid", "noteon", "0", "60", "128"}, "velocity '128'"},
        {{"send", "fluid", "noteon", "0", "sixty", "100"}, "note 'sixty'"},
        {{"send", "fluid", "noteon", "0", "60"}, "noteon needs CH NOTE VEL [DUR]"},
        {{"send", "fluid", "pitch", "0", "8192"}, "pitch bend '8192' is not a number from -8192"},
        {{"send", "fluid", "chord", "0"}, "unknown EVENT 'chord'"},
        {{"query", "fluid", "cc", "0"}, "cc needs CH CTRL"},
        {{"query", "fluid", "noteon", "0"}, "unknown EVENT 'noteon'"},
        {{"send", "fluid", "pgm", "0", "5", "--json"}, "send: unknown option '--json'"},
        {{"devices", "--jsn"}, "unknown option '--jsn'"},
        {{"devices", "extra"}, "devices: takes no arguments"},
        {{"monitor", "--count", "0"}, "--count: event count '0'"},
        {{"play"}, "play: needs one FILE"},
        {{"connect", "a"}, "needs SRC and DST"},
        {{"fonts", "unload"}, "unload needs one ID"},
        {{"wait", "-5"}, "wait: time in milliseconds '-5'"},
        {{"devices", "--lib"}, "option '--lib' needs a value"},
        {{"devices", "--json=yes"}, "option '--json' takes no value"},
        {{"devices", "-x"}, "unknown option '-x'"},
        {{"devices", "--then"}, "'--then' must follow a command"},
        {{"--then", "devices"}, "'--then' must follow a command"},
        {{"devices", "--then", "--then", "devices"}, "'--then' must follow a command"},
        {{"--audio", "hw:0", "--wav", "x.wav", "devices"}, "--audio and --wav exclude each other"},
    };
    for (const Case& c : cases) {
        const CommandLine line = Parse(c.args);
        std::string joined;
        for (const std::string& word : c.args)
            joined += word + " ";
        EXPECT_EQ(CommandLine::ERROR, line.outcome) << joined;
        EXPECT_NE(std::string::npos, line.text.find(c.message)) << joined << "-> " << line.text;
        EXPECT_EQ(std::string::npos, line.text.find('\n')) << joined;
    }
}

TEST(CliCommandLine, HelpIsForTheCommandNamedBeforeIt) {
    EXPECT_EQ(ProgramHelp(), Parse({"--help"}).text);
    EXPECT_EQ(ProgramHelp(), Parse({"-v", "-h", "send"}).text);
    const CommandLine send = Parse({"send", "--help"});
    EXPECT_EQ(CommandLine::HELP, send.outcome);
    EXPECT_EQ(CommandHelp(Command::Send), send.text);
    // Incomplete arguments do not hide the help that was asked for.
    EXPECT_EQ(CommandHelp(Command::Play), Parse({"devices", "--then", "play", "-h"}).text);
    // After "--" a word is an argument, even one that looks like --help.
    const CommandLine literal = Parse({"play", "--", "--help"});
    EXPECT_EQ(CommandLine::RUN, literal.outcome);
    EXPECT_EQ("--help", literal.actions[0].path);
}

TEST(CliCommandLine, ScriptLinesAreCommandsWithQuotesAndComments) {
    std::vector<Action> actions;
    std::string error;
    ASSERT_TRUE(ParseScript("# warm up the synthesizer\n"
                            "\n"
                            "send 'Virtual Raw MIDI 1-0' pgm 0 5   # a piano\n"
                            "  query \"FLUID Synth\" pgm 0\r\n"
                            "wait 100",
                            actions, error))
        << error;
    ASSERT_EQ(3u, actions.size());
    EXPECT_EQ("Virtual Raw MIDI 1-0", actions[0].devices[0]);
    EXPECT_EQ(MIDI_EVENT_PROGRAM_CHANGE, actions[0].eventType);
    EXPECT_EQ("FLUID Synth", actions[1].devices[0]);
    EXPECT_EQ(Command::Query, actions[1].command);
    EXPECT_EQ(100, actions[2].waitMs);
}

TEST(CliCommandLine, ScriptErrorsNameTheirLine) {
    struct Case {
        const char* text;
        const char* message;
    } cases[] = {
        {"devices\nsend fluid cc 0 7\n", "line 2: send: cc needs CH CTRL VAL"},
        {"devices\n\nquery 'fluid pgm 0\n", "line 3: unterminated quote"},
        {"--wav x.wav devices\n", "line 1: option '--wav' belongs on the command line"},
        {"script other.txt\n", "line 1: scripts do not run other scripts"},
    };
    for (const Case& c : cases) {
        std::vector<Action> actions;
        std::string error;
        EXPECT_FALSE(ParseScript(c.text, actions, error)) << c.text;
        EXPECT_EQ(c.message, error.substr(0, strlen(c.message))) << error;
    }
}
