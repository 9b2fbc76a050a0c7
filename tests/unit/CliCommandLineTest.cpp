// nuvmidi's command line: the forms that need no library to be told apart.
#include <gtest/gtest.h>

#include "CommandLine.h"

using nuvcli::CommandLine;
using nuvcli::ParseCommandLine;

TEST(CliCommandLine, VersionPlaysAndRendersAreRead) {
    const CommandLine version = ParseCommandLine({"--version"});
    EXPECT_EQ(CommandLine::HELP, version.outcome);
    EXPECT_EQ(0u, version.text.find("nuvmidi 1.")) << version.text;

    const CommandLine play = ParseCommandLine({"play", "a.mid", "b.mid", "c.mid"});
    ASSERT_EQ(CommandLine::RUN, play.outcome) << play.text;
    ASSERT_EQ(1u, play.actions.size());
    EXPECT_EQ("a.mid", play.actions[0].path);
    EXPECT_EQ((std::vector<std::string>{"b.mid", "c.mid"}), play.actions[0].morePaths);

    const CommandLine render = ParseCommandLine({"render", "a.mid", "-o", "a.wav"});
    ASSERT_EQ(CommandLine::RUN, render.outcome) << render.text;
    EXPECT_EQ("a.mid", render.actions[0].path);
    EXPECT_EQ("a.wav", render.actions[0].output);

    const CommandLine noOutput = ParseCommandLine({"render", "a.mid"});
    EXPECT_EQ(CommandLine::ERROR, noOutput.outcome);
    EXPECT_EQ("render: needs one FILE and -o OUT.wav", noOutput.text);
}
