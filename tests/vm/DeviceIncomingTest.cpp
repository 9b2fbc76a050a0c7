// Incoming MIDI end to end: bytes played on a virtual keyboard reach the host's callbacks
// on that keyboard's device, and a device that goes away calls no one again.
#include <alsa/asoundlib.h>

#include <atomic>

#include "DeviceVmFixture.h"
#include "LogCapture.h"
#include "VirtualKeyboard.h"

namespace {

const char kWatcherRelayed[] = "[NuvMIDIWatcher::OnMIDIEvent] sent to connector";

class DeviceIncoming : public DeviceVmTest {
protected:
    void SetUp() override {
        DeviceVmTest::SetUp();
        m_keyboards = VirtualKeyboard::FindAll();
        ASSERT_GE(m_keyboards.size(), 2u);
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

TEST_F(DeviceIncoming, TwoCallbacksHearEachEventTwiceAndOneUnregistrationSilencesBoth) {
    INuvMIDIDevice* first = CreateDevice(m_keyboards[0].ClientName());
    INuvMIDIDevice* second = CreateDevice(m_keyboards[1].ClientName());
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, second);
    RecordingHostCallback& a = NewHostCallback();
    RecordingHostCallback& b = NewHostCallback();
    RecordingHostCallback& other = NewHostCallback();
    first->RegisterCallback(&a);
    first->RegisterCallback(&b);
    second->RegisterCallback(&other);
    LogCapture log;

    ASSERT_TRUE(m_keyboards[0].Write({0x90, 62, 80}));
    EXPECT_TRUE(WaitFor([&] { return a.Count() == 2 && b.Count() == 2; }));
    ASSERT_TRUE(m_keyboards[1].Write({0x90, 64, 80}));
    EXPECT_TRUE(WaitFor([&] { return other.Count() == 1; }));
    EXPECT_EQ(2u, a.Count()); // the second device's events never reach the first's callbacks
    EXPECT_EQ(1u, other.Count());

    EXPECT_EQ(1, first->UnregisterCallback(&a));
    // The watcher offers the event to the second device's connector, which drops it.
    const int relayed = log.CountContaining(kWatcherRelayed);
    ASSERT_TRUE(m_keyboards[0].Write({0xB0, 1, 10}));
    ASSERT_TRUE(WaitFor([&] { return log.CountContaining(kWatcherRelayed) > relayed; }));
    EXPECT_EQ(2u, a.Count());
    EXPECT_EQ(2u, b.Count());
    EXPECT_EQ(1u, other.Count());
}

// Records the device manager's detach announcements.
class DetachRecorder : public NuvCallback {
public:
    int t_OnCallback(int event, void*, void* id, void*) override {
        if (event == NUV_EVENT_DEVICE_DETACHED && id != nullptr)
            m_detached.store(*static_cast<int*>(id));
        return 0;
    }
    std::atomic<int> m_detached{-1};
};

// A keyboard application that is there before the library starts, so that the watcher
// finds it by enumeration, already named.
class DeviceUnplug : public DeviceVmTest {
protected:
    void SetUp() override {
        m_keyboard.reset(new UserSpaceClient(kName));
        ASSERT_TRUE(m_keyboard->IsOpen());
        DeviceVmTest::SetUp();
    }

    static constexpr const char* kName = "Nuv Unplugged Keyboard";
    std::unique_ptr<UserSpaceClient> m_keyboard;
};

// The keyboard sends and goes away while the host still has callbacks registered: every
// note sent before it left is delivered, and after its device is gone nothing is called
// (under ASan: nothing freed is touched).
TEST_F(DeviceUnplug, DeviceUnpluggedWithCallbacksRegisteredCallsNoOneAgain) {
    INuvMIDIDevice* device = CreateDevice(kName);
    ASSERT_NE(nullptr, device);
    const int id = device->GetID();
    DetachRecorder detach;
    ASSERT_EQ(0, m_manager->RegisterCallback(&detach));
    RecordingHostCallback& host = NewHostCallback();
    device->RegisterCallback(&host);

    const int notes = 50;
    for (int i = 0; i < notes; ++i) {
        snd_seq_event_t event;
        snd_seq_ev_clear(&event);
        snd_seq_ev_set_source(&event, 0);
        snd_seq_ev_set_subs(&event);
        snd_seq_ev_set_direct(&event);
        snd_seq_ev_set_noteon(&event, 0, 40 + i % 40, 90);
        snd_seq_event_output(m_keyboard->Handle(), &event);
    }
    snd_seq_drain_output(m_keyboard->Handle());
    m_keyboard->Close();

    EXPECT_TRUE(WaitFor([&] { return detach.m_detached.load() == id; }));
    EXPECT_EQ(static_cast<size_t>(notes), host.Count());
    EXPECT_EQ(0, m_manager->IsConnected(kName));
    m_manager->UnregisterCallback(&detach);
}

} // namespace
