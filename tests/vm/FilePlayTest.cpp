// MIDI files played through StartStream(file, device): the play status, stopping, one
// file at a time, and what is heard (refused paths are in the bad-input tests).
#include <dlfcn.h>
#include <unistd.h>

#include "LogCapture.h"
#include "LoopbackCapture.h"
#include "ManagerVmFixture.h"
#include "SoundFontWriter.h"
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
        ASSERT_NO_FATAL_FAILURE(ManagerVmTest::SetUp());
        m_device = CreateKeyboard(0);
        ASSERT_NE(nullptr, m_device);
        m_dst = End(m_device, MIDI_DEVICE_TYPE_DESTINATION);
        std::string problem;
        ASSERT_TRUE(m_capture.Start(&problem)) << problem;
    }

    // Plays a file of `program` chords that sounds for `seconds`.
    int Start(double seconds, int program = 20) {
        EXPECT_TRUE(WriteSong(m_song.Path(), seconds, program));
        _MIDIDeviceInfo src = FileEnd(m_song.Path());
        return m_manager->StartStream(&src, &m_dst);
    }
    int Stop() {
        _MIDIDeviceInfo src = FileEnd("");
        return m_manager->StopStream(&src, &m_dst);
    }
    bool WaitIdle(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        return WaitFor([&] { return m_manager->GetFilePlayStatus() == 1; }, timeout);
    }
    bool Heard() {
        return WaitFor([&] { return m_capture.RecentRms(20) > kHeard; });
    }

    INuvMIDIDevice* m_device = nullptr;
    _MIDIDeviceInfo m_dst{};
    TempFile m_song{".mid"};
    LoopbackCapture m_capture;
};

// A piano fades for seconds after its last note-off; the file ends at its last event all
// the same, and its last notes ring on after it. A second file meanwhile is not queued.
TEST_F(FilePlay, AFileIsHeardUntilItsLastEventAndTheStatusFollowsIt) {
    for (int program : {20, 0}) {
        SCOPED_TRACE(program);
        EXPECT_EQ(1, m_manager->GetFilePlayStatus());
        const int users = RendererUsers();
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(1, Start(1.0, program));
        EXPECT_EQ(2, m_manager->GetFilePlayStatus());
        EXPECT_EQ(users + 1, RendererUsers()) << "a started file is a user of the renderer";
        EXPECT_TRUE(Heard());
        EXPECT_EQ(1, Start(1.0)) << "a second file while one plays";
        ASSERT_TRUE(WaitIdle());
        [[maybe_unused]] const std::chrono::duration<double> took =
            std::chrono::steady_clock::now() - start;
#if !defined(__SANITIZE_THREAD__) // which renders slower than real time
        EXPECT_NEAR(1.0, took.count(), 0.3) << "a file that waited for its release: seconds";
#endif
        EXPECT_TRUE(program == 20 || Heard()) << "the release is not cut";
        EXPECT_FALSE(WaitFor([&] { return m_manager->GetFilePlayStatus() == 2; },
                             std::chrono::milliseconds(300)))
            << "the second file was not queued";
        EXPECT_EQ(users + 1, RendererUsers()) << "the end of a file leaves its user";
    }
}

TEST_F(FilePlay, StopWhilePlayingAnswersZeroAndTheStatusIsIdleAtOnce) {
    ASSERT_EQ(1, Start(30.0));
    LogCapture log;
    EXPECT_EQ(0, Stop());
    EXPECT_EQ(1, m_manager->GetFilePlayStatus());
    EXPECT_EQ(1, log.CountContaining("[NuvMIDIDeviceManager::StopStream] File play stop called"));
    EXPECT_EQ(1, Stop()) << "nothing is playing any more";
    // FluidSynth's player keeps a timer thread awake until the player is deleted.
    EXPECT_TRUE(WaitFor([] { return CountThreadsNamed("timer") == 0; }));
    ASSERT_EQ(1, Start(0.5)) << "a new file plays after a stop, on a new player";
    EXPECT_TRUE(WaitIdle());
    EXPECT_EQ(2, RendererUsers()) << "each started file added a user";
}

TEST_F(FilePlay, AFileThePlayerRefusesEndsAndTheNextOnePlays) {
    LogCapture log;
    g_refuseFiles = true;
    EXPECT_EQ(1, Start(1.0));
    EXPECT_TRUE(WaitIdle());
    g_refuseFiles = false;
    EXPECT_EQ(1, log.CountContaining("could not be started"));
    ASSERT_EQ(1, Start(0.5)) << "the refused file's thread has ended";
    EXPECT_TRUE(Heard());
    EXPECT_TRUE(WaitIdle());
}

TEST_F(FilePlay, DestroyingTheLibraryWhileAFilePlaysEndsItsThreadFirst) {
    ASSERT_EQ(1, Start(30.0));
    ASSERT_TRUE(Heard());
    NuvMIDIEntry::DeleteInstance(); // must not leave the thread on a freed player
}

} // namespace
