// A connector whose candidate carries no client information (made by another plug-in):
// every operation reports the missing record and fails without touching anything.
#include <gtest/gtest.h>

#include "LateCallRecorder.h"
#include "LogCapture.h"
#include "MIDITestDevices.h"
#include "NuvMIDIConnector.h"
#include "NuvMIDIWatcher.h"

TEST(MIDIConnectorWithoutClientInformation, EveryOperationReportsTheMissingRecordAndFails) {
    NuvMIDIWatcher watcher;
    TestCandidate candidate(20, "Other", nullptr);
    candidate.info.pExtraInfo = nullptr;
    NuvMIDIConnector connector(&candidate.info, &watcher);
    LateCallRecorder device;
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
    EXPECT_EQ(0, device.calls.load());
    EXPECT_EQ(1, connector.UnregisterMIDICallback(&device));
    _MIDIClientInfo info;
    memset(&info, 0xff, sizeof(info));
    connector.GetClientInformation(&info);
    EXPECT_EQ(nullptr, info.seq);
    EXPECT_EQ(nullptr, info.synth);
    EXPECT_EQ(7, log.CountContaining("No MIDI client information"));
}
