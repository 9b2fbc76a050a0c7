// Incoming MIDI end to end: bytes played on a virtual keyboard reach the host's callback on
// that keyboard's device.
#include <alsa/asoundlib.h>

#include <atomic>

#include "DeviceVmFixture.h"
#include "LogCapture.h"
#include "VirtualKeyboard.h"

namespace {

class DeviceIncoming : public DeviceVmTest {
protected:
    void SetUp() override {
        DeviceVmTest::SetUp();
        m_keyboards = VirtualKeyboard::FindAll();
        ASSERT_GE(m_keyboards.size(), 1u);
    }

    std::vector<VirtualKeyboard> m_keyboards;
};

TEST_F(DeviceIncoming, EveryChannelMessageReachesTheHostWithItsEventCode) {
    VirtualKeyboard& keyboard = m_keyboards[0];
    INuvMIDIDevice* device = CreateDevice(keyboard.ClientName());
    ASSERT_NE(nullptr, device);
    RecordingHostCallback& host = NewHostCallback();
    ASSERT_EQ(1, device->RegisterCallback(&host));

    // The kernel's byte parser keeps the controller number of the last control change in
    // the parameter of the one-byte messages that follow: param is checked only for notes and
    // control changes.
    const int kNoParam = -1;
    struct Case {
        std::vector<uint8_t> bytes;
        int code, channel, param, value;
    } cases[] = {
        {{0x90, 60, 100}, 16, 0, 60, 100},
        {{0x80, 60, 64}, 17, 0, 60, 64},
        {{0xB3, 7, 100}, 20, 3, 7, 100},
        {{0xC1, 5}, 21, 1, kNoParam, 5},
        {{0xD2, 64}, 22, 2, kNoParam, 64},
        {{0xE0, 0x00, 0x40}, 23, 0, kNoParam, 0},
        {{0xEF, 0x00, 0x00}, 23, 15, kNoParam, -8192},
    };
    for (const Case& c : cases) {
        const size_t before = host.Count();
        ASSERT_TRUE(keyboard.Write(c.bytes));
        ASSERT_TRUE(WaitFor([&] { return host.Count() > before; })) << c.code;
        const ReceivedEvent event = host.Events().back();
        EXPECT_EQ(c.code, event.code);
        EXPECT_EQ(device->GetID(), event.deviceId);
        EXPECT_EQ(c.channel, event.copy.channel) << c.code;
        if (c.param != kNoParam) {
            EXPECT_EQ(c.param, event.copy.param) << c.code;
        }
        EXPECT_EQ(c.value, event.copy.value) << c.code;
        EXPECT_TRUE(event.lastArgumentNull);
        if (c.code >= 20) {
            EXPECT_EQ(std::string(256, '\0'), std::string(event.copy.text, 256)) << c.code;
        }
    }
    EXPECT_EQ(7u, host.Count());
}

} // namespace
