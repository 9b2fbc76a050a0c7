// What a device sends, as a peer of the watcher's sending port sees it, and what the
// synthesizer received, as the device reads it back.
#include <poll.h>

#include <memory>

#include "LogCapture.h"
#include "ManagerVmFixture.h"
#include "SequencerView.h"

namespace {

// The next event that reaches `seq`, waiting at most five seconds.
bool NextEvent(snd_seq_t* seq, snd_seq_event_t* out) {
    pollfd fd{};
    snd_seq_poll_descriptors(seq, &fd, 1, POLLIN);
    snd_seq_event_t* event = nullptr;
    if (snd_seq_event_input_pending(seq, 1) <= 0 && poll(&fd, 1, 5000) != 1)
        return false;
    if (snd_seq_event_input(seq, &event) < 0)
        return false;
    *out = *event;
    return true;
}

// A client subscribed to the watcher's sending port, and the device of Midi Through.
class DeviceSendMessage : public ManagerVmTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ManagerVmTest::SetUp());
        const SequencerView view = SequencerView::Read();
        const SeqClientView* watcher = view.Find("MIDI Watcher");
        ASSERT_NE(nullptr, watcher);
        m_watcher = watcher->number;
        ASSERT_TRUE(m_peer.IsOpen());
        ASSERT_EQ(0, snd_seq_connect_from(m_peer.Handle(), 0, m_watcher, 2));
        m_device = m_manager->CreateDevice("Midi Through");
        ASSERT_NE(nullptr, m_device);
    }
    int m_watcher = -1;
    UserSpaceClient m_peer{"Nuv Send Peer"};
    INuvMIDIDevice* m_device = nullptr;
};

TEST_F(DeviceSendMessage, PeerOfTheSendingPortSeesEveryMessageInOrder) {
    const struct {
        MIDIEventType type;
        _MIDIMessage msg;
        int seqType, channel, param, value; // param: note or controller; value: velocity too
    } cases[] = {
        {MIDI_EVENT_NOTE_ON, Message(9, 38, 127, 500), SND_SEQ_EVENT_NOTEON, 9, 38, 127},
        {MIDI_EVENT_NOTE_OFF, Message(0, 60, 64), SND_SEQ_EVENT_NOTEOFF, 0, 60, 64},
        {MIDI_EVENT_CONTROL_CHANGE, Message(2, 7, 90), SND_SEQ_EVENT_CONTROLLER, 2, 7, 90},
        {MIDI_EVENT_PROGRAM_CHANGE, Message(1, 0, 5), SND_SEQ_EVENT_PGMCHANGE, 1, 0, 5},
        {MIDI_EVENT_PITCH_BEND, Message(3, 0, -200), SND_SEQ_EVENT_PITCHBEND, 3, 0, -200},
        {MIDI_EVENT_NOTE_ON, Message(256, 61, 90), SND_SEQ_EVENT_NOTEON, 0, 61, 90},
    };
    for (const auto& c : cases) {
        _MIDIMessage msg = c.msg;
        EXPECT_EQ(0, m_device->SendMessage(c.type, msg));
    }
    // No note-off follows a note for its duration: the events are exactly those sent.
    for (const auto& c : cases) {
        SCOPED_TRACE(c.seqType);
        snd_seq_event_t ev;
        ASSERT_TRUE(NextEvent(m_peer.Handle(), &ev));
        EXPECT_EQ(c.seqType, ev.type);
        EXPECT_EQ(m_watcher, ev.source.client);
        EXPECT_EQ(2, ev.source.port);
        if (snd_seq_ev_is_note_type(&ev)) {
            EXPECT_EQ(c.channel, ev.data.note.channel);
            EXPECT_EQ(c.param, ev.data.note.note);
            EXPECT_EQ(c.value, ev.data.note.velocity);
            EXPECT_EQ(unsigned(c.msg.duration), ev.data.note.duration);
        } else {
            EXPECT_EQ(c.channel, ev.data.control.channel);
            EXPECT_EQ(unsigned(c.param), ev.data.control.param);
            EXPECT_EQ(c.value, ev.data.control.value);
        }
    }
}

// A type the sequencer refuses (5, a scheduled note, cannot be sent directly; 130, a
// variable-length type, comes with a fixed-length payload) is dropped with a line naming
// it; whatever the type, the next message reaches the synthesizer and the port's peers.
TEST_F(DeviceSendMessage, NoTypeValueHoldsBackTheMessagesAfterIt) {
    LogCapture log;
    for (int type = 0; type < 256; ++type) {
        SCOPED_TRACE("type " + std::to_string(type));
        _MIDIMessage any = Message(0, 60, 100);
        m_device->SendMessage(static_cast<MIDIEventType>(type), any);
        const int volume = type % 128; // differs from the previous probe's
        ASSERT_TRUE(SendVolumeAndReadItBack(m_device, volume)) << "the synthesizer did not get it";
        snd_seq_event_t ev;
        bool heard = false;
        while (!heard && NextEvent(m_peer.Handle(), &ev))
            heard = ev.type == SND_SEQ_EVENT_CONTROLLER && ev.data.control.param == 7 &&
                    ev.data.control.value == volume;
        ASSERT_TRUE(heard) << "the port's peer did not get the next message";
    }
    for (int refused : {5, 130})
        EXPECT_EQ(1, log.CountContaining("Event [" + std::to_string(refused) + "] refused"));
}

TEST_F(DeviceSendMessage, SynthesizerStateReadsBackWhatWasSent) {
    _MIDIMessage sent[] = {Message(4, 7, 33), Message(5, 0, 10), Message(7, 0, 100)};
    m_device->SendMessage(MIDI_EVENT_CONTROL_CHANGE, sent[0]);
    m_device->SendMessage(MIDI_EVENT_PROGRAM_CHANGE, sent[1]);
    m_device->SendMessage(MIDI_EVENT_PITCH_BEND, sent[2]);
    // Font 1 is the default font; the sequencer's bend is centred on 0, the synthesizer's
    // on 8192; the answer to a program change keeps the caller's value.
    const struct {
        MIDIEventType type;
        _MIDIMessage asked;
        int value;
        const char* text;
    } cases[] = {
        {MIDI_EVENT_CONTROL_CHANGE, Message(4, 7, 0), 33, "33"},
        {MIDI_EVENT_PROGRAM_CHANGE, Message(5, 0, 777), 777, "001:000:010"},
        {MIDI_EVENT_PITCH_BEND, Message(7, 0, 0), 8292, "8292"},
        {MIDI_EVENT_PITCH_BEND, Message(6, 0, 0), 8192, "8192"},
        {MIDI_EVENT_CHANNEL_PRESSURE, Message(4, 0, 55), 55, ""},
    };
    for (const auto& c : cases) {
        _MIDIMessage answer = c.asked;
        EXPECT_TRUE(WaitFor([&] {
            answer = c.asked;
            return m_device->GetInformation(c.type, &answer) == 0 && answer.value == c.value &&
                   std::string(answer.text) == c.text;
        })) << c.type
            << ": " << answer.value << " " << answer.text;
    }
    _MIDIMessage refused = Message(99, 7, 77); // no such channel: the caller's value stays
    EXPECT_EQ(0, m_device->GetInformation(MIDI_EVENT_CONTROL_CHANGE, &refused));
    EXPECT_EQ(77, refused.value);
}

TEST_F(DeviceSendMessage, DefaultKeywordLoadsTheDefaultFontOnceMore) {
    const int id = m_device->LoadSoundFontFile("Default");
    EXPECT_GT(id, 1); // the copy loaded when the synthesizer was made keeps id 1
    EXPECT_EQ(945u, m_device->GetSoundFontIntruments(id, 0, 45).size());
    EXPECT_EQ(m_device->GetSoundFontIntruments(1, 0, 45),
              m_device->GetSoundFontIntruments(id, 0, 45));
    EXPECT_EQ(1, m_device->UnloadSoundFontFile(id));
    EXPECT_EQ(-1, m_device->LoadSoundFontFile("default"));
}

} // namespace
