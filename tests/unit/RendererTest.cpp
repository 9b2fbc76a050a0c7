// The renderer: what reaches the output at rest and after MIDI, and an output that cannot be
// opened (the manager makes a renderer for each first user: none starts twice). The
// synthesizer is a real FluidSynth one, the output the WAV sink.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "PcmAnalysis.h"
#include "RendererRig.h"
#include "SoundFontWriter.h"
#include "ThreadNames.h"
#include "WaitFor.h"
#include "nuv_audio_out.h"

namespace {

const char* const kFont = "/usr/share/sounds/sf2/TimGM6mb.sf2";

class Renderer : public ::testing::Test {
protected:
    void SetUp() override {
        nuv_audio_out_set_wav_file(m_wav.Path().c_str());
        sound_manager_get_volume(SOUND_TYPE_SYSTEM, &m_savedVolume);
    }
    void TearDown() override {
        nuv_audio_out_set_wav_file(nullptr);
        nuv_audio_out_set_device(nullptr);
        sound_manager_set_volume(SOUND_TYPE_SYSTEM, m_savedVolume);
    }

    void CreateRenderer() {
        ASSERT_EQ(0, m_rig.renderer.Create(5, 7, "abc"));
        m_rig.created = true;
    }
    bool LoadFont() {
        return access(kFont, R_OK) == 0 && fluid_synth_sfload(m_rig.synth, kFont, 1) >= 0;
    }
    static uint64_t FramesWritten() {
        nuv_audio_out_stats_s stats{};
        nuv_audio_out_get_stats(&stats);
        return stats.frames_written;
    }

    // Context switches of the renderer thread so far: how often it has slept and woken.
    static long RendererSwitches() {
        long total = 0;
        for (const auto& thread : ThreadsNamed("NuvMIDIRenderer")) {
            std::ifstream status(thread / "status");
            for (std::string line; std::getline(status, line);)
                if (line.find("ctxt_switches:") != std::string::npos)
                    total += std::stol(line.substr(line.find(':') + 1));
        }
        return total;
    }
    RendererRig m_rig;
    TempFile m_wav{".wav"};
    int m_savedVolume = 15;
};

TEST_F(Renderer, CreateSetsTheSystemVolumeOneStepBelowItsMaximum) {
    sound_manager_set_volume(SOUND_TYPE_SYSTEM, 3);
    CreateRenderer();
    int level = 0;
    sound_manager_get_volume(SOUND_TYPE_SYSTEM, &level);
    EXPECT_EQ(14, level);
}

// At rest the thread sleeps until MIDI reaches the synthesizer, and the next note sounds.
TEST_F(Renderer, AnIdleSynthesizerWritesNoSoundAndTheRestingThreadWakesOnlyForMIDI) {
    if (!LoadFont())
        GTEST_SKIP() << "no sound font at " << kFont;
    CreateRenderer();
    const uint64_t before = FramesWritten(); // the counter is the process's
    ASSERT_EQ(0, m_rig.renderer.StartRenderer());
    // The rest begins after half a second of quiet: within 3 s must come a window of
    // 300 ms in which the thread neither wakes nor writes.
    bool rested = false;
    uint64_t quiet = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (!rested && std::chrono::steady_clock::now() < deadline) {
        const long switches = RendererSwitches();
        quiet = FramesWritten();
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the window watched
        rested = RendererSwitches() - switches <= 1 && FramesWritten() == quiet;
    }
    ASSERT_TRUE(rested) << "a resting renderer must not wake on a timer";

    // A CC starts no voice: the renderer wakes, looks and rests again.
    m_rig.Send(0xB0, 0, 7, 100);
    m_rig.Send(0x90, 0, 69, 110); // a note-on of A4, 440 Hz
    ASSERT_TRUE(WaitFor([&] { return FramesWritten() >= quiet + 48000 / 4; }));
    m_rig.renderer.StopRenderer();
    Pcm pcm;
    ASSERT_TRUE(ReadWav(m_wav.Path(), pcm));
    ASSERT_GE(pcm.Frames(), size_t(48000 / 4));
    // The file begins with the frames written before the quiet window, with the silence of
    // any stall between them: what idle wrote is dither of one step.
    const size_t idleFrames = size_t(quiet - before);
    ASSERT_LE(idleFrames, pcm.Frames());
    for (size_t i = 0; i < idleFrames * 2; ++i)
        ASSERT_LE(std::abs(int(pcm.samples[i])), 1) << i;
    EXPECT_NEAR(440.0, Fundamental(pcm.Slice(pcm.Frames() - 48000 / 8, 48000 / 8)), 440.0 * 0.03);
}

TEST_F(Renderer, AnOutputThatCannotBeOpenedLeavesTheThreadRunningWithoutWriting) {
    if (!LoadFont())
        GTEST_SKIP() << "no sound font at " << kFont;
    nuv_audio_out_set_wav_file(nullptr);
    nuv_audio_out_set_device("nuv_no_such_pcm");
    CreateRenderer();
    LogCapture quiet(NUV_LOG_CRITICAL);
    EXPECT_EQ(0, m_rig.renderer.StartRenderer());
    EXPECT_TRUE(WaitFor([] { return CountThreadsNamed("NuvMIDIRenderer") == 1; }));
    const uint64_t before = FramesWritten();
    fluid_synth_noteon(m_rig.synth, 0, 60, 100);
    EXPECT_FALSE(
        WaitFor([&] { return FramesWritten() != before; }, std::chrono::milliseconds(200)));
    EXPECT_EQ(0, m_rig.renderer.StopRenderer());
    fluid_synth_noteoff(m_rig.synth, 0, 60);
    EXPECT_EQ(0, CountThreadsNamed("NuvMIDIRenderer"));
}

} // namespace
