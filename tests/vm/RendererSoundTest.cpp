// Sound for real: what a device is sent is played by the synthesizer, rendered to the
// default PCM and recorded from the other side of the VM's loopback card.
#include <cmath>

#include "LoopbackCapture.h"
#include "ManagerVmFixture.h"
#include "sound_manager.h"

namespace {

constexpr double kHeard = 0.003;   // well above the dither of an idle synthesizer
constexpr double kSilent = 0.0003; // a decayed note
constexpr int kReedOrgan = 20;     // steady while held, with a clear fundamental

class RendererSound : public ManagerVmTest {
protected:
    void SetUp() override {
        ManagerVmTest::SetUp();
        std::string problem;
        ASSERT_TRUE(m_capture.Start(&problem)) << problem;
        m_device = TakeKeyboard(0);
        ASSERT_NE(nullptr, m_device);
    }
    void TearDown() override {
        Send(MIDI_EVENT_CONTROL_CHANGE, 0, 123, 0); // all notes off
        m_capture.Stop();
        ManagerVmTest::TearDown();
    }

    void Send(MIDIEventType type, int channel, int param, int value) {
        _MIDIMessage msg{};
        msg.channel = channel;
        msg.param = param;
        msg.value = value;
        m_device->SendMessage(type, msg);
    }
    bool WaitHeard() {
        return WaitFor([&] { return m_capture.RecentRms(50) > kHeard; }, std::chrono::seconds(5));
    }
    // Records `ms` more milliseconds and returns them.
    Pcm RecordFor(int ms) {
        const size_t from = m_capture.Frames();
        const size_t frames = size_t(48 * ms);
        EXPECT_TRUE(WaitFor([&] { return m_capture.Frames() >= from + frames; }));
        return m_capture.Recorded().Slice(from, frames);
    }

    LoopbackCapture m_capture;
    INuvMIDIDevice* m_device = nullptr;
};

TEST_F(RendererSound, ANoteOnIsHeardAtItsPitchAndANoteOffLetsItDecayToSilence) {
    Send(MIDI_EVENT_PROGRAM_CHANGE, 0, 0, kReedOrgan);
    Send(MIDI_EVENT_NOTE_ON, 0, 69, 127); // A4
    ASSERT_TRUE(WaitHeard()) << "level " << m_capture.RecentRms(50);
    const Pcm tone = RecordFor(300);
    EXPECT_GT(Rms(tone), kHeard);
    const double f = Fundamental(tone);
    EXPECT_NEAR(440.0, f, 440.0 * 0.03);

    Send(MIDI_EVENT_NOTE_OFF, 0, 69, 0);
    EXPECT_TRUE(
        WaitFor([&] { return m_capture.RecentRms(100) < kSilent; }, std::chrono::seconds(5)))
        << "level " << m_capture.RecentRms(100);
}

TEST_F(RendererSound, TheSystemVolumeLevelChangesWhatIsHeard) {
    int level = 0;
    sound_manager_get_volume(SOUND_TYPE_SYSTEM, &level);
    EXPECT_EQ(14, level) << "the renderer sets one step below the maximum";
    Send(MIDI_EVENT_PROGRAM_CHANGE, 0, 0, kReedOrgan);
    Send(MIDI_EVENT_NOTE_ON, 0, 57, 127);
    ASSERT_TRUE(WaitHeard());
    RecordFor(100); // past the attack
    const double loud = Rms(RecordFor(300));

    sound_manager_set_volume(SOUND_TYPE_SYSTEM, 7); // 21 dB lower
    RecordFor(100);                                 // what was queued at the old level plays out
    const double quiet = Rms(RecordFor(300));
    sound_manager_set_volume(SOUND_TYPE_SYSTEM, 14);
    Send(MIDI_EVENT_NOTE_OFF, 0, 57, 0);

    ASSERT_GT(loud, kHeard);
    const double db = 20 * std::log10(quiet / loud);
    EXPECT_NEAR(-21.0, db, 3.0) << "loud " << loud << " quiet " << quiet;
}

} // namespace
