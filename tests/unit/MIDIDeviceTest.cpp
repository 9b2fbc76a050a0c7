// The device object the host holds: what it reports, how it opens and closes its
// connector, and how incoming MIDI reaches the host's callbacks.
#include <gtest/gtest.h>

#include <algorithm>

#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIDevice.h"
#include "NuvMIDIWatcher.h"
#include "SoundFontWriter.h"

namespace {

std::vector<std::string> Texts(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const LogLine& line : log.Lines())
        texts.push_back(line.text);
    return texts;
}

// One device on the connector of client 20, created as the device manager creates it.
class MIDIDeviceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, m_device.Create()); }
    void TearDown() override { m_device.Destroy(); }

    TestSynthesizer m_synth;
    NuvMIDIWatcher m_watcher;
    TestCandidate m_candidate{20, "USB Keyboard", m_synth.Get()};
    NuvMIDIConnector m_connector{&m_candidate.info, &m_watcher};
    NuvMIDIDevice m_device{&m_connector, 3};
};

TEST_F(MIDIDeviceTest, ReportsItsTypeIdAndTheCandidatesInformation) {
    _NuvDevInfo info;
    memset(&info, 0xff, sizeof(info));

    m_device.GetDevInfo(info);

    EXPECT_EQ(512, m_device.GetType());
    EXPECT_EQ(3, m_device.GetID());
    EXPECT_EQ(0, memcmp(&m_candidate.info.devInfo, &info, sizeof(info)));
    EXPECT_STREQ("20", info.UID);
    EXPECT_STREQ("USB Keyboard", info.deviceName);
}

TEST_F(MIDIDeviceTest, HostCallbackReceivesCodeDeviceIdAndMessage) {
    RecordingHostCallback host;
    EXPECT_EQ(1, m_device.RegisterCallback(&host));
    _MIDIMessage msg = Message(3, 7, 100);
    LogCapture log;

    m_watcher.OnMIDIEvent(20, 20, msg);

    const std::vector<ReceivedEvent> events = host.Events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(20, events[0].code);
    EXPECT_EQ(3, events[0].deviceId);
    EXPECT_EQ(&msg, events[0].message);
    EXPECT_TRUE(events[0].lastArgumentNull);
    EXPECT_EQ(1, log.Count(Trace("\n[NuvMIDIDevice::OnMIDIEvent]\n"), NUV_LOG_TRACE));
    m_device.UnregisterCallback(&host);
}

TEST_F(MIDIDeviceTest, TwoHostCallbacksEachGetEveryEventTwiceUntilEitherLeaves) {
    RecordingHostCallback first, second;
    m_device.RegisterCallback(&first);
    m_device.RegisterCallback(&second);
    _MIDIMessage msg = Message(0, 60, 100);
    LogCapture quiet(NUV_LOG_CRITICAL);

    m_watcher.OnMIDIEvent(20, 16, msg);
    EXPECT_EQ(2u, first.Count());
    EXPECT_EQ(2u, second.Count());

    EXPECT_EQ(1, m_device.UnregisterCallback(&first));
    m_watcher.OnMIDIEvent(20, 16, msg);
    EXPECT_EQ(2u, first.Count());
    EXPECT_EQ(2u, second.Count());

    // A new registration brings the remaining callback back, once per registration since.
    m_device.RegisterCallback(&first);
    m_watcher.OnMIDIEvent(20, 17, msg);
    EXPECT_EQ(3u, first.Count());
    EXPECT_EQ(3u, second.Count());
    EXPECT_EQ(17, second.Events().back().code);
}

TEST_F(MIDIDeviceTest, AnotherDevicesEventsNeverArrive) {
    TestCandidate otherCandidate(24, "Pads", m_synth.Get());
    NuvMIDIConnector otherConnector(&otherCandidate.info, &m_watcher);
    NuvMIDIDevice other(&otherConnector, 4);
    ASSERT_EQ(0, other.Create());
    RecordingHostCallback mine, theirs;
    m_device.RegisterCallback(&mine);
    other.RegisterCallback(&theirs);
    _MIDIMessage msg = Message(0, 60, 100);
    LogCapture quiet(NUV_LOG_CRITICAL);

    m_watcher.OnMIDIEvent(24, 16, msg);
    m_watcher.OnMIDIEvent(24, 17, msg);

    EXPECT_EQ(0u, mine.Count());
    ASSERT_EQ(2u, theirs.Count());
    EXPECT_EQ(4, theirs.Events()[0].deviceId);
    other.Destroy();
}

TEST_F(MIDIDeviceTest, DestroyStopsTheRelayAndClosesTheConnector) {
    NuvMIDIDevice device(&m_connector, 5);
    RecordingHostCallback host;
    LogCapture log;
    ASSERT_EQ(0, device.Create());
    device.RegisterCallback(&host);

    device.Destroy();
    _MIDIMessage msg = Message(0, 60, 100);
    m_watcher.OnMIDIEvent(20, 16, msg);

    EXPECT_EQ(0u, host.Count());
    const std::vector<std::string> texts = Texts(log);
    const std::vector<std::string> expected = {
        Trace("\n[NuvMIDIDevice::Create] Enter\n"),
        Trace("\n[NuvMIDIConnector::Open] Enter\n"),
        Trace("\n[NuvMIDIConnector::Open] EXit\n"),
        Trace("\n[NuvMIDIDevice::Create] Exit\n"),
        Trace("\n[NuvMIDIConnector::RegisterMIDICallback]\n"),
    };
    ASSERT_GE(texts.size(), expected.size());
    EXPECT_EQ(expected, std::vector<std::string>(texts.begin(), texts.begin() + 5));
    auto at = [&](const std::string& text) {
        return std::find(texts.begin(), texts.end(), text) - texts.begin();
    };
    EXPECT_LT(at(Trace("\n[NuvMIDIDevice::Destroy] Enter\n")),
              at(Trace("\n[NuvMIDIConnector::UnregisterMIDICallback]\n")));
    EXPECT_LT(at(Trace("\n[NuvMIDIConnector::UnregisterMIDICallback]\n")),
              at(Trace("\n[NuvMIDIConnector::Close] Enter\n")));
    EXPECT_LT(at(Trace("\n[NuvMIDIConnector::Close] EXit\n")),
              at(Trace("\n[NuvMIDIDevice::Destroy] Exit\n")));
    EXPECT_EQ(0, log.CountContaining("ASSERT"));
}

TEST(MIDIDeviceCreation, ConnectorThatCannotOpenFailsCreationWith9072) {
    struct ClosedConnector : NuvMIDIConnector {
        using NuvMIDIConnector::NuvMIDIConnector;
        int Open() override { return 1; }
    };
    TestCandidate candidate(20, "Keyboard", nullptr);
    ClosedConnector connector(&candidate.info, nullptr);
    LogCapture log;
    {
        NuvMIDIDevice device(&connector, 1);
        EXPECT_EQ(9072, device.Create());
    }
    // The handler was undone: deleting the device reports nothing.
    EXPECT_EQ(0, log.CountContaining("ASSERT"));
    EXPECT_EQ(0, log.CountContaining("[NuvMIDIDevice::Create] Exit"));
}

TEST_F(MIDIDeviceTest, QueriesAndSendsAnswerSuccessWhateverTheConnectorSaid) {
    _MIDIMessage msg = Message(0, 0, 42);
    const _MIDIMessage before = msg;
    LogCapture log;

    EXPECT_EQ(0, m_device.GetInformation(MIDI_EVENT_CHANNEL_PRESSURE, &msg));
    EXPECT_EQ(0, memcmp(&before, &msg, sizeof(msg)));
    EXPECT_EQ(0, m_device.GetInformation(MIDI_EVENT_PITCH_BEND, &msg));
    EXPECT_EQ(8192, msg.value);
    EXPECT_EQ(0, m_device.SendMessage(MIDI_EVENT_NOTE_ON, msg)); // no sequencer at all
    EXPECT_EQ(2, log.Count(Trace("\n[NuvMIDIDevice::GetInformation]\n"), NUV_LOG_TRACE));
    EXPECT_EQ(1, log.Count(Trace("\n[NuvMIDIDevice::SendMessage]\n"), NUV_LOG_TRACE));
}

TEST_F(MIDIDeviceTest, SoundFontOperationsPassTheConnectorsResultsThrough) {
    TempFile font(".sf2");
    ASSERT_TRUE(font.Write(BuildSoundFont({{"Piano", 0, 0}})));
    LogCapture log;

    const int id = m_device.LoadSoundFontFile(font.Path());
    EXPECT_EQ(1, id);
    EXPECT_EQ("000:000 Piano       ,", m_device.GetSoundFontIntruments(id, 0, 1));
    EXPECT_EQ(1, m_device.UnloadSoundFontFile(id));
    EXPECT_EQ(0, m_device.UnloadSoundFontFile(id));
    EXPECT_EQ(-1, m_device.LoadSoundFontFile("/nonexistent.sf2"));

    EXPECT_EQ(2, log.Count(Trace("\n[NuvMIDIDevice::LoadSoundFontFile]\n"), NUV_LOG_TRACE));
    EXPECT_EQ(2, log.Count(Trace("\n[NuvMIDIDevice::UnloadSoundFontFile]\n"), NUV_LOG_TRACE));
    EXPECT_EQ(1, log.Count(Trace("\n[NuvMIDIDevice::GetSoundFontIntruments]\n"), NUV_LOG_TRACE));
}

} // namespace
