// Naming devices as people see them: client numbers, names, prefixes in any case.
#include <gtest/gtest.h>

#include "DeviceMatch.h"

using namespace nuvcli;

namespace {

DeviceEntry Device(int client, const char* name, bool synth = false) {
    DeviceEntry device;
    device.client = client;
    device.name = name;
    device.isSynth = synth;
    return device;
}

class CliDeviceMatch : public ::testing::Test {
protected:
    const std::vector<DeviceEntry> devices = {
        Device(14, "Midi Through"),         Device(20, "Virtual Raw MIDI 1-0"),
        Device(21, "Virtual Raw MIDI 1-1"), Device(24, "Keystation"),
        Device(25, "Keystation 49"),        Device(129, "FLUID Synth (4242)", true),
    };

    // The client number of the device `query` names, or -1.
    int Client(const std::string& query) {
        const DeviceMatch match = MatchDevice(devices, query);
        return match.status == DeviceMatch::FOUND ? devices[match.index].client : -1;
    }
};

} // namespace

TEST_F(CliDeviceMatch, ClientNumberAsAconnectWritesIt) {
    EXPECT_EQ(20, Client("20"));
    EXPECT_EQ(129, Client("129:0"));
    // A number that no client has is read as a name, and no name starts with it.
    EXPECT_EQ(DeviceMatch::UNKNOWN, MatchDevice(devices, "99").status);
    EXPECT_EQ(DeviceMatch::UNKNOWN, MatchDevice(devices, "20:x").status);
}

TEST_F(CliDeviceMatch, WholeNameBeforePrefix) {
    EXPECT_EQ(24, Client("Keystation")); // also a prefix of "Keystation 49"
    EXPECT_EQ(24, Client("KEYSTATION"));
    EXPECT_EQ(25, Client("Keystation 49"));
    EXPECT_EQ(14, Client("midi through"));
}

TEST_F(CliDeviceMatch, UniquePrefixInAnyCase) {
    EXPECT_EQ(129, Client("fluid"));
    EXPECT_EQ(21, Client("virtual raw midi 1-1"));
    EXPECT_EQ(14, Client("Midi T"));
}

TEST_F(CliDeviceMatch, AmbiguousPrefixNamesEveryCandidate) {
    const DeviceMatch match = MatchDevice(devices, "virtual");
    ASSERT_EQ(DeviceMatch::AMBIGUOUS, match.status);
    EXPECT_EQ((std::vector<size_t>{1, 2}), match.candidates);
    EXPECT_EQ("device 'virtual' is ambiguous: it may be 'Virtual Raw MIDI 1-0' (20) or "
              "'Virtual Raw MIDI 1-1' (21)",
              DescribeFailedMatch(devices, "virtual", match));
}

TEST_F(CliDeviceMatch, UnknownNameListsTheDevicesThereAre) {
    const DeviceMatch match = MatchDevice(devices, "Launchpad");
    ASSERT_EQ(DeviceMatch::UNKNOWN, match.status);
    const std::string text = DescribeFailedMatch(devices, "Launchpad", match);
    EXPECT_EQ(0u, text.find("unknown device 'Launchpad'; connected: 'Midi Through' (14), "));
    EXPECT_NE(std::string::npos, text.find("'FLUID Synth (4242)' (129)"));
    EXPECT_EQ(DeviceMatch::UNKNOWN, MatchDevice(devices, "").status);
    EXPECT_EQ("unknown device 'x'; no device is connected",
              DescribeFailedMatch({}, "x", MatchDevice({}, "x")));
}

TEST_F(CliDeviceMatch, TwoClientsOfOneNameGiveTheFirst) {
    const std::vector<DeviceEntry> twins = {Device(20, "USB MIDI"), Device(24, "USB MIDI")};
    const DeviceMatch match = MatchDevice(twins, "usb");
    ASSERT_EQ(DeviceMatch::AMBIGUOUS, match.status);
    EXPECT_EQ(DeviceMatch::FOUND, MatchDevice(twins, "USB MIDI").status);
    EXPECT_EQ(0u, MatchDevice(twins, "USB MIDI").index);
    EXPECT_EQ(1u, MatchDevice(twins, "24").index);
}
