// MIDI files played through StartStream(file, device): the play status, stopping, one
// file at a time, and what is heard (refused paths are in the bad-input tests).
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "LogCapture.h"
#include "LoopbackCapture.h"
#include "ManagerVmFixture.h"
#include "MidiFileWriter.h"
#include "ThreadNames.h"

namespace {
std::atomic<bool> g_refuseFiles{false};
}

// Stands before FluidSynth's own: refuses every file while armed, as FluidSynth does when
// memory runs out.
extern "C" int fluid_player_add(fluid_player_t* player, const char* path) {
    if (g_refuseFiles.load())
        return FLUID_FAILED;
    static const auto real = reinterpret_cast<int (*)(fluid_player_t*, const char*)>(
        dlsym(RTLD_NEXT, "fluid_player_add"));
    return real(player, path);
}

namespace {

constexpr double kHeard = 0.003;

class FilePlay : public ManagerVmTest {
protected:
    void SetUp() override {
        ManagerVmTest::SetUp();
        m_dir = ::testing::TempDir() + "nuv_fileplay_" + std::to_string(getpid());
        mkdir(m_dir.c_str(), 0755);
        m_device = CreateKeyboard(0);
        ASSERT_NE(nullptr, m_device);
        m_dst = End(m_device, MIDI_DEVICE_TYPE_DESTINATION);
    }
    void TearDown() override {
        ManagerVmTest::TearDown();
        std::system(("rm -rf '" + m_dir + "'").c_str());
    }

    // A file of steady organ chords that sounds for `seconds`.
    std::string WriteSong(const std::string& name, double seconds, int format = 1) {
        MidiFileWriter song(format);
        song.AddProgramChange(0, 20, 0); // reed organ: steady while held
        for (double t = 0; t + 0.25 <= seconds; t += 0.25) {
            song.AddNote(0, 60, 100, t, 0.25);
            song.AddNote(0, 64, 100, t, 0.25);
        }
        song.SetLength(seconds);
        const std::string path = m_dir + "/" + name;
        EXPECT_TRUE(song.Write(path));
        return path;
    }
    int Start(const std::string& path) {
        _MIDIDeviceInfo src = FileEnd(path);
        return m_manager->StartStream(&src, &m_dst);
    }
    int Stop() {
        _MIDIDeviceInfo src = FileEnd("");
        return m_manager->StopStream(&src, &m_dst);
    }
    bool WaitIdle(std::chrono::milliseconds timeout) {
        return WaitFor([&] { return m_manager->GetFilePlayStatus() == 1; }, timeout);
    }

    std::string m_dir;
    INuvMIDIDevice* m_device = nullptr;
    _MIDIDeviceInfo m_dst{};
};

TEST_F(FilePlay, AFileIsHeardForItsLengthAndTheStatusFollowsIt) {
    LoopbackCapture capture;
    std::string problem;
    ASSERT_TRUE(capture.Start(&problem)) << problem;
    const std::string song = WriteSong("song.mid", 2.0);
    EXPECT_EQ(1, m_manager->GetFilePlayStatus());

    ASSERT_EQ(1, Start(song));
    EXPECT_EQ(2, m_manager->GetFilePlayStatus());
    EXPECT_EQ(1, RendererUsers()) << "a started file is a user of the renderer";
    EXPECT_TRUE(WaitFor([&] { return capture.RecentRms(50) > kHeard; }));
    EXPECT_EQ(2, m_manager->GetFilePlayStatus());
    ASSERT_TRUE(WaitIdle(std::chrono::seconds(6))) << "the file ends by itself";
    EXPECT_TRUE(WaitFor([&] { return capture.RecentRms(200) < kHeard / 10; }));
    capture.Stop();

#if !defined(__SANITIZE_THREAD__)
    // Under ThreadSanitizer the emulated CPU renders slower than real time.
    const double sounding = SoundingSeconds(capture.Recorded(), kHeard, 10);
    EXPECT_NEAR(2.0, sounding, 0.3) << "the organ's release adds a little";
#endif
    EXPECT_EQ(1, RendererUsers()) << "the end of a file leaves its user";
}

// A piano and a string section fade for seconds after their last note-off; the file ends
// at its last event all the same, and its last notes ring on after it.
TEST_F(FilePlay, TheFileEndsAtItsLastEventWhileItsLastNotesRingOn) {
    LoopbackCapture capture;
    std::string problem;
    ASSERT_TRUE(capture.Start(&problem)) << problem;
    for (int program : {0, 48}) {
        MidiFileWriter song;
        song.AddProgramChange(0, program, 0);
        song.AddNote(0, 60, 110, 0, 1.0);
        song.AddNote(0, 64, 110, 0, 1.0);
        const std::string path = m_dir + "/fade.mid";
        ASSERT_TRUE(song.Write(path));
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(1, Start(path));
        ASSERT_TRUE(WaitIdle(std::chrono::seconds(10)));
        [[maybe_unused]] const double ended = // not checked under ThreadSanitizer
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_TRUE(
            WaitFor([&] { return capture.RecentRms(20) > kHeard; }, std::chrono::milliseconds(100)))
            << "program " << program << ": the release is not cut";
#if !defined(__SANITIZE_THREAD__)
        EXPECT_NEAR(1.0, ended, 0.1) << "program " << program;
#endif
    }
}

TEST_F(FilePlay, StopWhilePlayingAnswersZeroAndTheStatusIsIdleAtOnce) {
    ASSERT_EQ(1, Start(WriteSong("long.mid", 30.0)));
    LogCapture log;
    EXPECT_EQ(0, Stop());
    EXPECT_EQ(1, m_manager->GetFilePlayStatus());
    EXPECT_TRUE(
        log.Has("\n[NuvMIDIDeviceManager::StopStream] File play stop called \n\n", NUV_LOG_TRACE));
    EXPECT_EQ(1, Stop()) << "nothing is playing any more";
    // FluidSynth's player keeps a timer thread awake until the player is deleted.
    EXPECT_TRUE(WaitFor([] { return CountThreadsNamed("timer") == 0; }))
        << "the stopped player's timer still runs";
    // A new file plays after a stop, on a new player.
    ASSERT_EQ(1, Start(WriteSong("next.mid", 0.5)));
    EXPECT_TRUE(WaitIdle(std::chrono::seconds(5)));
    EXPECT_EQ(2, RendererUsers()) << "each started file added a user";
}

TEST_F(FilePlay, ASecondFileWhileOnePlaysAnswersOneAndIsNotQueued) {
    LogCapture log;
    ASSERT_EQ(1, Start(WriteSong("first.mid", 1.0)));
    EXPECT_EQ(1, Start(WriteSong("second.mid", 1.0)));
    EXPECT_EQ(1, RendererUsers());
    ASSERT_TRUE(WaitIdle(std::chrono::seconds(5)));
    EXPECT_EQ(1, log.CountContaining("[PlayFile] Enter"));
    EXPECT_TRUE(log.Has("\n[PlayFile] Enter " + m_dir + "/first.mid\n", NUV_LOG_TRACE));
    EXPECT_EQ(1, m_manager->GetFilePlayStatus()) << "the second file was not queued";
}

TEST_F(FilePlay, AFileThePlayerRefusesEndsAndTheNextOnePlays) {
    LogCapture log;
    g_refuseFiles = true;
    EXPECT_EQ(1, Start(WriteSong("refused.mid", 1.0)));
    EXPECT_TRUE(WaitIdle(std::chrono::seconds(5)));
    g_refuseFiles = false;
    EXPECT_EQ(1, log.CountContaining("could not be started"));
    ASSERT_EQ(1, Start(WriteSong("next.mid", 0.5))) << "the refused file's thread has ended";
    EXPECT_TRUE(WaitIdle(std::chrono::seconds(5)));
}

TEST_F(FilePlay, DestroyingTheLibraryWhileAFilePlaysEndsItsThreadFirst) {
    LogCapture log;
    ASSERT_EQ(1, Start(WriteSong("long.mid", 30.0, 0)));
    ASSERT_TRUE(WaitFor([&] { return log.CountContaining("[PlayFile] Enter") == 1; }));
    NuvMIDIEntry::DeleteInstance(); // must not leave the thread on a freed player
}

} // namespace
