// What a device sends, as a peer of the watcher's sending port sees it, and what the
// synthesizer received, as the device reads it back.
#include <alsa/asoundlib.h>
#include <poll.h>
#include <stdio.h>

#include <memory>

#include "CommandOutput.h"
#include "DeviceVmFixture.h"
#include "LogCapture.h"
#include "VirtualKeyboard.h"

namespace {

const char kMidiThrough[] = "Midi Through";

// One line of aseqdump for an event from client:port.
std::string DumpLine(int client, int port, const std::string& event) {
    char source[16];
    snprintf(source, sizeof(source), "%3d:%-3d ", client, port);
    return source + event;
}

// The next event that reaches `seq`, waiting at most `timeout`.
bool NextEvent(snd_seq_t* seq, snd_seq_event_t* out,
               std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const int count = snd_seq_poll_descriptors_count(seq, POLLIN);
    std::vector<struct pollfd> fds(count);
    snd_seq_poll_descriptors(seq, fds.data(), count, POLLIN);
    for (;;) {
        if (snd_seq_event_input_pending(seq, 1) > 0) {
            snd_seq_event_t* event = nullptr;
            if (snd_seq_event_input(seq, &event) >= 0 && event != nullptr) {
                *out = *event;
                return true;
            }
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        poll(fds.data(), fds.size(), static_cast<int>(left.count()));
    }
}

class DeviceSendMessage : public DeviceVmTest {
protected:
    // A client subscribed to the watcher's sending port, and a device to send with.
    void ConnectPeer() {
        m_watcher = WatcherClient();
        ASSERT_GE(m_watcher, 0);
        m_peer.reset(new UserSpaceClient("Nuv Send Peer"));
        ASSERT_TRUE(m_peer->IsOpen());
        ASSERT_EQ(0, snd_seq_connect_from(m_peer->Handle(), 0, m_watcher, 2));
        m_device = CreateDevice(kMidiThrough);
        ASSERT_NE(nullptr, m_device);
    }

    int m_watcher = -1;
    std::unique_ptr<UserSpaceClient> m_peer;
    INuvMIDIDevice* m_device = nullptr;
};

TEST_F(DeviceSendMessage, PeerOfTheSendingPortSeesEveryMessage) {
    const int watcher = WatcherClient();
    ASSERT_GE(watcher, 0);
    CommandOutput dump({"aseqdump", "-p", std::to_string(watcher) + ":2"});
    ASSERT_TRUE(dump.WaitForLineContaining("Waiting for data"));
    INuvMIDIDevice* device = CreateDevice(kMidiThrough);
    ASSERT_NE(nullptr, device);

    _MIDIMessage on = Message(0, 60, 100, 500);
    _MIDIMessage off = Message(0, 60, 64);
    _MIDIMessage control = Message(2, 7, 90);
    _MIDIMessage program = Message(1, 0, 5);
    _MIDIMessage bend = Message(3, 0, -200);
    _MIDIMessage wideChannel = Message(256, 61, 90);
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_NOTE_ON, on));
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_NOTE_OFF, off));
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, control));
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_PROGRAM_CHANGE, program));
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_PITCH_BEND, bend));
    EXPECT_EQ(0, device->SendMessage(MIDI_EVENT_NOTE_ON, wideChannel));

    const char* expected[] = {
        "Note on                 0, note 60, velocity 100",
        "Note off                0, note 60, velocity 64",
        "Control change          2, controller 7, value 90",
        "Program change          1, program 5",
        "Pitch bend              3, value -200",
        "Note on                 0, note 61, velocity 90",
    };
    for (const char* event : expected)
        EXPECT_TRUE(dump.WaitForLine(DumpLine(watcher, 2, event))) << event;
    // Nothing but what was sent, in the order it was sent.
    std::vector<std::string> events;
    for (const std::string& line : dump.Lines())
        if (line.rfind(DumpLine(watcher, 2, ""), 0) == 0)
            events.push_back(line);
    ASSERT_EQ(6u, events.size());
    for (size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(DumpLine(watcher, 2, expected[i]), events[i]);
}

TEST_F(DeviceSendMessage, NoteCarriesItsDurationAndNoNoteOffFollows) {
    ASSERT_NO_FATAL_FAILURE(ConnectPeer());
    const int watcher = m_watcher;
    snd_seq_t* peer = m_peer->Handle();
    INuvMIDIDevice* device = m_device;

    _MIDIMessage note = Message(9, 38, 127, 1);
    device->SendMessage(MIDI_EVENT_NOTE_ON, note);
    snd_seq_event_t event;
    ASSERT_TRUE(NextEvent(peer, &event));
    EXPECT_EQ(SND_SEQ_EVENT_NOTEON, event.type);
    EXPECT_EQ(watcher, event.source.client);
    EXPECT_EQ(2, event.source.port);
    EXPECT_EQ(9, event.data.note.channel);
    EXPECT_EQ(38, event.data.note.note);
    EXPECT_EQ(127, event.data.note.velocity);
    EXPECT_EQ(1u, event.data.note.duration);

    // The next event is the next message sent, not a note-off for the note's end.
    _MIDIMessage marker = Message(0, 1, 1);
    device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, marker);
    ASSERT_TRUE(NextEvent(peer, &event));
    EXPECT_EQ(SND_SEQ_EVENT_CONTROLLER, event.type);
}

// A type the sequencer refuses (5, a scheduled note, cannot be sent directly; 130, a
// variable-length type, comes with a fixed-length payload) is dropped with a line naming
// it; whatever the type, the next message reaches the synthesizer and the port's peers.
TEST_F(DeviceSendMessage, NoTypeValueHoldsBackTheMessagesAfterIt) {
    ASSERT_NO_FATAL_FAILURE(ConnectPeer());
    snd_seq_t* peer = m_peer->Handle();
    INuvMIDIDevice* device = m_device;
    LogCapture log;

    for (int type = 0; type < 256; ++type) {
        SCOPED_TRACE("type " + std::to_string(type));
        _MIDIMessage any = Message(0, 60, 100);
        device->SendMessage(static_cast<MIDIEventType>(type), any);
        const int volume = type % 128; // differs from the previous probe's
        _MIDIMessage probe = Message(0, 7, volume);
        device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, probe);

        snd_seq_event_t event;
        bool heard = false;
        while (!heard && NextEvent(peer, &event))
            heard = event.type == SND_SEQ_EVENT_CONTROLLER && event.data.control.param == 7 &&
                    event.data.control.value == volume;
        ASSERT_TRUE(heard) << "the port's peer did not get the next message";
        _MIDIMessage answer = Message(0, 7, -1);
        ASSERT_TRUE(WaitFor([&] {
            device->GetInformation(MIDI_EVENT_CONTROL_CHANGE, &answer);
            return answer.value == volume;
        })) << "the synthesizer did not get the next message";
    }
    for (int refused : {5, 130}) {
        const std::string line = "Event [" + std::to_string(refused) + "] refused";
        int found = 0;
        for (const LogLine& logged : log.Lines())
            found += logged.level == NUV_LOG_INFO && logged.text.find(line) != std::string::npos;
        EXPECT_EQ(1, found) << line;
    }
}

TEST_F(DeviceSendMessage, SynthesizerStateReadsBackWhatWasSent) {
    INuvMIDIDevice* device = CreateDevice(kMidiThrough);
    ASSERT_NE(nullptr, device);
    _MIDIMessage control = Message(4, 7, 33);
    _MIDIMessage program = Message(5, 0, 10);
    _MIDIMessage bend = Message(7, 0, 100);
    device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, control);
    device->SendMessage(MIDI_EVENT_PROGRAM_CHANGE, program);
    device->SendMessage(MIDI_EVENT_PITCH_BEND, bend);

    _MIDIMessage answer = Message(4, 7, 0);
    EXPECT_TRUE(WaitFor([&] {
        device->GetInformation(MIDI_EVENT_CONTROL_CHANGE, &answer);
        return answer.value == 33;
    }));
    EXPECT_STREQ("33", answer.text);

    // Font 1 is the default font that the synthesizer loaded when it was made.
    _MIDIMessage programAnswer = Message(5, 0, 777);
    EXPECT_TRUE(WaitFor([&] {
        device->GetInformation(MIDI_EVENT_PROGRAM_CHANGE, &programAnswer);
        return std::string(programAnswer.text) == "001:000:010";
    })) << programAnswer.text;
    EXPECT_EQ(777, programAnswer.value);

    // The sequencer's bend is centred on 0, the synthesizer's on 8192.
    _MIDIMessage bendAnswer = Message(7, 0, 0);
    EXPECT_TRUE(WaitFor([&] {
        device->GetInformation(MIDI_EVENT_PITCH_BEND, &bendAnswer);
        return bendAnswer.value == 8292;
    })) << bendAnswer.value;
    _MIDIMessage untouched = Message(6, 0, 0);
    device->GetInformation(MIDI_EVENT_PITCH_BEND, &untouched);
    EXPECT_EQ(8192, untouched.value);
    EXPECT_STREQ("8192", untouched.text);

    _MIDIMessage pressure = Message(4, 0, 55);
    EXPECT_EQ(9900, ConnectorOf(device)->GetInformation(MIDI_EVENT_CHANNEL_PRESSURE, &pressure));
    EXPECT_EQ(0, device->GetInformation(MIDI_EVENT_CHANNEL_PRESSURE, &pressure));
    EXPECT_EQ(55, pressure.value);
}

TEST_F(DeviceSendMessage, DefaultKeywordLoadsTheDefaultFontOnceMore) {
    INuvMIDIDevice* device = CreateDevice(kMidiThrough);
    ASSERT_NE(nullptr, device);

    const int id = device->LoadSoundFontFile("Default");

    EXPECT_GT(id, 1); // the copy loaded when the synthesizer was made keeps id 1
    EXPECT_EQ(device->GetSoundFontIntruments(1, 0, 45), device->GetSoundFontIntruments(id, 0, 45));
    EXPECT_EQ(945u, device->GetSoundFontIntruments(id, 0, 45).size());
    EXPECT_EQ(1, device->UnloadSoundFontFile(id));
    EXPECT_EQ(-1, device->LoadSoundFontFile("default"));
}

} // namespace
