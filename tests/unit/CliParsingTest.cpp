// nuvmidi's command line: the forms that need no library to be told apart, and naming devices
// as people see them: client numbers, whole names before prefixes, prefixes in any case (what
// is said when a name matches none or several: CliVm.EachFailure...).
#include <gtest/gtest.h>

#include "CommandLine.h"
#include "DeviceMatch.h"

using namespace nuvcli;

namespace {

DeviceEntry Device(int client, const char* name) {
    DeviceEntry device;
    device.client = client;
    device.name = name;
    return device;
}

const std::vector<DeviceEntry> kDevices = {
    Device(14, "Midi Through"),
    Device(20, "Virtual Raw MIDI 1-0"),
    Device(21, "Virtual Raw MIDI 1-1"),
    Device(24, "Keystation"),
    Device(25, "Keystation 49"),
    Device(129, "FLUID Synth (4242)"),
    Device(130, "USB MIDI"),
    Device(131, "USB MIDI"),
};

TEST(CliDeviceMatch, NumbersNamesAndPrefixesFindTheirDevice) {
    const std::pair<const char*, int> cases[] = {
        {"20", 20},           {"129:0", 129},
        {"Keystation", 24}, // also a prefix
        {"KEYSTATION", 24},   {"Keystation 49", 25},
        {"midi through", 14}, {"fluid", 129},
        {"Midi T", 14},       {"USB MIDI", 130}, // the first of two
        {"131", 131},         {"99", -1},
        {"20:x", -1},         {"", -1},
    };
    for (const auto& c : cases) {
        const DeviceMatch match = MatchDevice(kDevices, c.first);
        EXPECT_EQ(c.second, match.status == DeviceMatch::FOUND ? kDevices[match.index].client : -1)
            << c.first;
    }
}

// (render with its output is run by CliVm.PlayAndRenderRecordTheSameFile)
TEST(CliCommandLine, VersionPlaysAndRendersAreRead) {
    const CommandLine version = ParseCommandLine({"--version"});
    EXPECT_EQ(CommandLine::HELP, version.outcome);
    EXPECT_EQ(0u, version.text.find("nuvmidi 1.")) << version.text;

    const CommandLine play = ParseCommandLine({"play", "a.mid", "b.mid", "c.mid"});
    ASSERT_EQ(CommandLine::RUN, play.outcome) << play.text;
    ASSERT_EQ(1u, play.actions.size());
    EXPECT_EQ("a.mid", play.actions[0].path);
    EXPECT_EQ((std::vector<std::string>{"b.mid", "c.mid"}), play.actions[0].morePaths);

    const CommandLine noOutput = ParseCommandLine({"render", "a.mid"});
    EXPECT_EQ(CommandLine::ERROR, noOutput.outcome);
    EXPECT_EQ("render: needs one FILE and -o OUT.wav", noOutput.text);
}

} // namespace
