// Connectors: what they read back from the synthesizer, and how they relay their device's
// incoming MIDI.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnectionManager.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIDeviceChecker.h"
#include "NuvMIDIWatcher.h"
#include "SoundFontWriter.h"
#include "WaitFor.h"

struct NuvMIDIConnectorProbe {
    static NuvMIDICallback* Callback(const NuvMIDIConnector& c) { return c.m_pMIDICallback; }
};

namespace {

// --- Reading the synthesizer back ------------------------------------------------------

class MIDIConnectorQuery : public ::testing::Test {
protected:
    TestSynthesizer m_synth;
    TestCandidate m_candidate{20, "Keyboard", m_synth.Get()};
    NuvMIDIConnector m_connector{&m_candidate.info, nullptr, m_synth.Owner()};
};

TEST_F(MIDIConnectorQuery, ControlChangeReadsTheControllersValueOrKeepsTheCallersOnARefusal) {
    fluid_synth_cc(m_synth.Get(), 2, 7, 90);
    _MIDIMessage msg = Message(2, 7, 0);
    memset(msg.text, 'x', sizeof(msg.text));
    EXPECT_EQ(0, m_connector.GetInformation(MIDI_EVENT_CONTROL_CHANGE, &msg));
    EXPECT_EQ(90, msg.value);
    EXPECT_STREQ("90", msg.text);
    EXPECT_EQ('x', msg.text[3]); // only the answer and its terminator are written

    _MIDIMessage refused = Message(99, 7, 77);
    LogCapture log;
    EXPECT_EQ(0, m_connector.GetInformation(MIDI_EVENT_CONTROL_CHANGE, &refused));
    EXPECT_EQ(77, refused.value);
    EXPECT_STREQ("77", refused.text);
    EXPECT_EQ(1, log.CountContaining("Error in getting control change value"));
}

TEST_F(MIDIConnectorQuery, ProgramChangeNamesFontBankAndProgramAndKeepsTheValue) {
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont({{"Piano", 0, 0}, {"Organ", 0, 5}})));
    ASSERT_EQ(1, m_connector.LoadSoundFontFile(font.Path()));
    _MIDIMessage msg = Message(0, 0, 1234);
    EXPECT_EQ(0, m_connector.GetInformation(MIDI_EVENT_PROGRAM_CHANGE, &msg));
    EXPECT_STREQ("001:000:000", msg.text);
    EXPECT_EQ(1234, msg.value);

    fluid_synth_program_change(m_synth.Get(), 0, 5);
    m_connector.GetInformation(MIDI_EVENT_PROGRAM_CHANGE, &msg);
    EXPECT_STREQ("001:000:005", msg.text);
}

TEST_F(MIDIConnectorQuery, PitchBendAnswersTheSynthesizersRangeCentredOn8192) {
    fluid_synth_pitch_bend(m_synth.Get(), 3, 100);
    _MIDIMessage untouched = Message(0, 0, 0);
    _MIDIMessage bent = Message(3, 0, 0);

    EXPECT_EQ(0, m_connector.GetInformation(MIDI_EVENT_PITCH_BEND, &untouched));
    EXPECT_EQ(0, m_connector.GetInformation(MIDI_EVENT_PITCH_BEND, &bent));

    EXPECT_EQ(8192, untouched.value);
    EXPECT_STREQ("8192", untouched.text);
    EXPECT_EQ(100, bent.value);
}

TEST_F(MIDIConnectorQuery, ChannelPressureAndUnknownTypesLeaveTheMessageAlone) {
    _MIDIMessage msg = Message(1, 2, 3);
    memset(msg.text, 'x', sizeof(msg.text));
    const _MIDIMessage before = msg;
    EXPECT_EQ(9900, m_connector.GetInformation(MIDI_EVENT_CHANNEL_PRESSURE, &msg));
    EXPECT_EQ(0, m_connector.GetInformation(static_cast<MIDIEventType>(5), &msg));

    EXPECT_EQ(0, memcmp(&before, &msg, sizeof(msg)));
}

// --- Relaying incoming MIDI ------------------------------------------------------------

class MIDIConnectorRelay : public ::testing::Test {
protected:
    NuvMIDIWatcher m_watcher;
    TestCandidate m_candidate{20, "Keyboard", nullptr};
    NuvMIDIConnector m_connector{&m_candidate.info, &m_watcher, nullptr};
    RecordingMIDICallback m_device;
};

TEST_F(MIDIConnectorRelay, RelaysOnlyItsOwnClientsEventsToTheLastRegisteredCallback) {
    _MIDIMessage msg = Message(3, 7, 100);
    LogCapture quiet(NUV_LOG_CRITICAL);
    m_watcher.OnMIDIEvent(20, 20, msg); // nothing registered yet
    ASSERT_EQ(1, m_connector.RegisterMIDICallback(&m_device));
    m_watcher.OnMIDIEvent(24, 20, msg);
    m_watcher.OnMIDIEvent(20, 20, msg);
    const std::vector<ReceivedEvent> events = m_device.Events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(20, events[0].client);
    EXPECT_EQ(20, events[0].code);
    EXPECT_EQ(&msg, events[0].message);

    // A device re-created on this connector: the old one's late teardown leaves it be.
    RecordingMIDICallback other;
    m_connector.RegisterMIDICallback(&other);
    EXPECT_EQ(0, m_connector.UnregisterMIDICallback(&m_device));
    m_watcher.OnMIDIEvent(20, 16, msg);
    EXPECT_EQ(1u, m_device.Events().size());
    EXPECT_EQ(1u, other.Events().size());
    EXPECT_EQ(1, m_connector.UnregisterMIDICallback(&other));
    m_watcher.OnMIDIEvent(20, 16, msg);
    EXPECT_EQ(1u, other.Events().size());
    EXPECT_EQ(nullptr, NuvMIDIConnectorProbe::Callback(m_connector));
}

// Registration and unregistration on a host thread against a stream of events on the
// event thread: once UnregisterMIDICallback has returned, the callback is not called.
TEST_F(MIDIConnectorRelay, UnregisteredCallbackIsNeverCalledAgain) {
    struct GuardedCallback : NuvMIDICallback {
        int OnMIDIEvent(int, int, _MIDIMessage&) override {
            if (!live.load())
                ++late;
            ++calls;
            return 0;
        }
        std::atomic<bool> live{false};
        std::atomic<int> calls{0};
        std::atomic<int> late{0};
    } device;
    LogCapture quiet(NUV_LOG_CRITICAL);
    std::atomic<bool> stop{false};
    std::thread events([&] {
        _MIDIMessage msg = Message(0, 60, 100);
        while (!stop.load())
            m_watcher.OnMIDIEvent(20, 16, msg);
    });

    for (int round = 0; round < 500; ++round) {
        device.live.store(true);
        m_connector.RegisterMIDICallback(&device);
        const int before = device.calls.load();
        EXPECT_TRUE(WaitFor([&] { return device.calls.load() > before; }));
        m_connector.UnregisterMIDICallback(&device);
        device.live.store(false);
    }
    stop.store(true);
    events.join();

    EXPECT_EQ(0, device.late.load());
}

// --- A candidate without client information (made by another plug-in) -----------------

TEST(MIDIConnectorWithoutClientInformation, EveryOperationReportsTheMissingRecordAndFails) {
    NuvMIDIWatcher watcher;
    TestCandidate candidate(20, "Other", nullptr);
    candidate.info.pExtraInfo = nullptr;
    NuvMIDIConnector connector(&candidate.info, &watcher, watcher.SeqSynth());
    RecordingMIDICallback device;
    _MIDIMessage msg = Message(0, 60, 100);
    const _MIDIMessage before = msg;
    LogCapture log;

    EXPECT_EQ(0, connector.SendMessage(MIDI_EVENT_NOTE_ON, msg));
    EXPECT_EQ(0, connector.GetInformation(MIDI_EVENT_CONTROL_CHANGE, &msg));
    EXPECT_EQ(0, memcmp(&before, &msg, sizeof(msg)));
    EXPECT_EQ(-1, connector.LoadSoundFontFile("Default"));
    EXPECT_EQ(0, connector.UnloadSoundFontFile(1));
    EXPECT_EQ("", connector.GetSoundFontIntruments(1, 0, 1));
    EXPECT_EQ(1, connector.RegisterMIDICallback(&device));
    watcher.OnMIDIEvent(20, 16, msg);
    EXPECT_TRUE(device.Events().empty());
    EXPECT_EQ(0, connector.UnregisterMIDICallback(&device)); // nothing was registered
    _MIDIClientInfo info;
    memset(&info, 0xff, sizeof(info));
    connector.GetClientInformation(&info);
    EXPECT_EQ(nullptr, info.seq);
    EXPECT_EQ(nullptr, info.synth);

    EXPECT_EQ(7, log.CountContaining("No MIDI client information"));
}

} // namespace
