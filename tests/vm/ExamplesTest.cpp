// The example hosts of examples/, run as a user runs them: the README's host must find the
// synthesizer and be heard, the monitor must print a keyboard's note, and neither may
// find the library's log on its standard error.
#include <gtest/gtest.h>

#include <unistd.h>

#include "ChildProcess.h"
#include "LoopbackCapture.h"
#include "VirtualKeyboard.h"

#ifdef NUV_EXAMPLES_DIR

namespace {
const auto kRunLimit = std::chrono::seconds(90);
const std::string kPlayNote = NUV_EXAMPLES_DIR "/nuv-play-note";
const std::string kMonitor = NUV_EXAMPLES_DIR "/nuv-monitor";

class ExamplesVm : public ::testing::Test {
protected:
    void SetUp() override {
        if (access("/dev/snd/seq", F_OK) != 0)
            GTEST_SKIP() << "no ALSA sequencer here";
    }
};
} // namespace

TEST_F(ExamplesVm, TheReadmeHostFindsTheSynthesizerAndIsHeard) {
    LoopbackCapture capture;
    std::string problem;
    ASSERT_TRUE(capture.Start(&problem)) << problem;
    const ProgramResult run = RunProgram({kPlayNote}, kRunLimit);
    capture.Stop();
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_EQ(0u, run.out.find("played middle C on FLUID")) << run.out;
    EXPECT_EQ("", run.err);
    EXPECT_NEAR(261.6, Fundamental(capture.Recorded()), 5.0);
}

TEST_F(ExamplesVm, TheMonitorPrintsAKeyboardsNote) {
    std::vector<VirtualKeyboard> keyboards = VirtualKeyboard::FindAll();
    ASSERT_FALSE(keyboards.empty());
    ChildProcess monitor;
    ASSERT_TRUE(monitor.Start({kMonitor, "60", "1"}));
    ASSERT_TRUE(monitor.WaitForOutput("listening to " + keyboards[0].ClientName(), kRunLimit))
        << monitor.Out() << monitor.Err();
    ASSERT_TRUE(keyboards[0].Write({0x90, 60, 100}));
    ASSERT_TRUE(monitor.Wait(std::chrono::seconds(20))) << monitor.Out();
    EXPECT_EQ(0, monitor.Status());
    const std::string& out = monitor.Out();
    const size_t line = out.find(keyboards[0].ClientName() + "     event 16");
    EXPECT_NE(std::string::npos, out.find("channel  0  param  60  value   100", line))
        << out;
    EXPECT_EQ("", monitor.Err());
}

#endif // NUV_EXAMPLES_DIR
