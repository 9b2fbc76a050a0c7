// The framework core: print_dlog's threshold, whole texts and sink replacement; the watcher
// thread's broken wake descriptor and its stop; the callback handler's unregistration from
// another thread (one call per registered callback is checked from the host's side:
// KeyboardCallbacks).
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "NuvCallback"
#include "NuvResult"
#include "NuvWatcher"
#include "WaitFor.h"

using namespace std::chrono_literals;

namespace {

// Counts its calls and runs an action the test chooses in each.
struct Hook {
    void operator()() {
        ++calls;
        if (action)
            action();
    }
    std::atomic<int> calls{0};
    std::function<void()> action; // set before the first call
};

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

TEST(NuvLog, AReplacedSinkIsNeverCalledAgain) {
    static std::atomic<int> oldSinkCalls{0};
    LogCapture restore(NUV_LOG_INFO); // puts the sink and threshold back at the end
    NuvLog_SetSink([](int, const char*, void*) { ++oldSinkCalls; }, nullptr);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop)
            print_dlog(NUV_LOG_INFO, "%s\n", "line");
    });
    ASSERT_TRUE(WaitFor([] { return oldSinkCalls > 0; }));
    NuvLog_SetSink([](int, const char*, void*) {}, nullptr);
    const int callsAtReplacement = oldSinkCalls;
    // Let the writer go on for a while with the new sink in place.
    for (int i = 0; i < 1000; ++i)
        print_dlog(NUV_LOG_INFO, "%s\n", "line");
    stop = true;
    writer.join();
    EXPECT_EQ(callsAtReplacement, oldSinkCalls.load());
}

// A watcher whose passes run the hook.
struct TestWatcher : NuvWatcher {
    ~TestWatcher() override { Destroy(); }
    void t_SpecialEnumerate() override {}
    void t_ExtraEnumerate() override { pass(); }
    using NuvWatcher::t_SetWakeDescriptors;
    Hook pass;
};

TEST(Watcher, AHungUpWakeDescriptorIsDroppedInsteadOfSpinning) {
    TestWatcher watcher;
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    close(pipeFds[1]); // the read end reports POLLHUP from now on
    struct pollfd fd = {pipeFds[0], POLLIN, 0};
    watcher.t_SetWakeDescriptors(&fd, 1);
    watcher.SetPeriod(0); // no timer: input and Stop alone end the wait
    ASSERT_EQ(watcher.Create(), NUV_OK);
    ASSERT_EQ(watcher.Start(), NUV_OK);

    ASSERT_TRUE(WaitFor([&] { return watcher.pass.calls >= 1; }));
    EXPECT_FALSE(WaitFor([&] { return watcher.pass.calls > 3; }, 200ms));
    watcher.Stop();
    close(pipeFds[0]);
}

TEST(Watcher, NoHookRunsOnceStopHasReturned) {
    TestWatcher watcher;
    std::atomic<bool> stopped{false};
    std::atomic<bool> hookAfterStop{false};
    watcher.pass.action = [&] {
        if (stopped)
            hookAfterStop = true;
        std::this_thread::sleep_for(2ms); // a pass that takes a while
    };
    watcher.SetPeriod(1);
    ASSERT_EQ(watcher.Create(), NUV_OK);
    for (int round = 0; round < 20; ++round) {
        stopped = false;
        const int before = watcher.pass.calls;
        ASSERT_EQ(watcher.Start(), NUV_OK);
        ASSERT_TRUE(WaitFor([&] { return watcher.pass.calls > before + 1; }));
        watcher.Stop();
        stopped = true;
        const int after = watcher.pass.calls;
        EXPECT_FALSE(WaitFor([&] { return watcher.pass.calls != after; }, 5ms));
    }
    EXPECT_FALSE(hookAfterStop);
}

struct HookCallback : NuvCallback {
    int t_OnCallback(int, void*, void*, void*) override { return hook(), 0; }
    Hook hook;
};

TEST(CallbackHandler, UnregisterFromAnotherThreadWaitsForTheWalkInProgress) {
    NuvCallbackHandler handler;
    ASSERT_EQ(handler.Create(), NUV_OK);
    HookCallback slow;
    std::promise<void> open; // broken, and so open, if the test ends early
    std::shared_future<void> gate = open.get_future().share();
    slow.hook.action = [&] { gate.wait(); };
    handler.RegisterCallback(&slow);
    std::thread walker([&] { handler.ExecuteCallback(1, nullptr, nullptr, nullptr); });
    ASSERT_TRUE(WaitFor([&] { return slow.hook.calls == 1; }));
    std::atomic<bool> unregistered{false};
    std::thread host([&] {
        handler.UnregisterCallback(&slow);
        unregistered = true;
    });
    EXPECT_FALSE(WaitFor([&] { return unregistered.load(); }, 100ms));
    open.set_value();
    walker.join();
    host.join();
    EXPECT_TRUE(unregistered);
    handler.ExecuteCallback(1, nullptr, nullptr, nullptr);
    EXPECT_EQ(slow.hook.calls, 1);
    handler.Destroy();
}

} // namespace
