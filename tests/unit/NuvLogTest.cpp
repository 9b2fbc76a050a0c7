// print_dlog: threshold, whole texts of any length, and sink replacement.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "NuvLog"
#include "WaitFor.h"

TEST(NuvLog, TheSinkGetsTheWholeTextAndLevelOfEveryLineUpToTheThreshold) {
    LogCapture log(NUV_LOG_INFO);
    const std::string text(5000, 'x');
    print_dlog(NUV_LOG_TRACE, "%s\n", "trace");
    print_dlog(NUV_LOG_INFO, "[%s]", text.c_str());
    _ASSERT("x", "f", 1);
    const auto lines = log.Lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("[" + text + "]", lines[0].text);
    EXPECT_EQ(NUV_LOG_INFO, lines[0].level);
    EXPECT_EQ("ASSERT: x (f:1)\n", lines[1].text);
}

namespace {
std::atomic<int> g_oldSinkCalls{0};
void OldSink(int, const char*, void*) {
    ++g_oldSinkCalls;
}
void QuietSink(int, const char*, void*) {}
} // namespace

TEST(NuvLog, AReplacedSinkIsNeverCalledAgain) {
    const int threshold = NuvLog_SetThreshold(NUV_LOG_INFO);
    NuvLogSink before = NuvLog_SetSink(&OldSink, nullptr);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop)
            print_dlog(NUV_LOG_INFO, "%s\n", "line");
    });
    ASSERT_TRUE(WaitFor([] { return g_oldSinkCalls > 0; }));
    NuvLog_SetSink(&QuietSink, nullptr);
    const int callsAtReplacement = g_oldSinkCalls;
    // Let the writer go on for a while with the new sink in place.
    for (int i = 0; i < 1000; ++i)
        print_dlog(NUV_LOG_INFO, "%s\n", "line");
    stop = true;
    writer.join();
    EXPECT_EQ(callsAtReplacement, g_oldSinkCalls.load());
    NuvLog_SetSink(before, nullptr);
    NuvLog_SetThreshold(threshold);
}
