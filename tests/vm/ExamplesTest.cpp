// The README's example host, run as a user runs it: it must find the synthesizer and be
// heard, and find no line of the library's log on its standard error (the installed-package
// test runs both examples against the installed packages).
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "LoopbackCapture.h"

#ifdef NUV_EXAMPLES_DIR

TEST(ExamplesVm, TheReadmeHostFindsTheSynthesizerAndIsHeard) {
    LoopbackCapture capture;
    std::string problem;
    ASSERT_TRUE(capture.Start(&problem)) << problem;
    const ProgramResult run =
        RunProgram({NUV_EXAMPLES_DIR "/nuv-play-note"}, std::chrono::seconds(90));
    capture.Stop();
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_EQ(0u, run.out.find("played middle C on FLUID")) << run.out;
    EXPECT_EQ("", run.err);
    EXPECT_NEAR(261.6, Fundamental(capture.Recorded()), 5.0);
}

#endif // NUV_EXAMPLES_DIR
