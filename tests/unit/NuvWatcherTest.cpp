// The watcher thread: a broken wake descriptor, and no pass once Stop has returned.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "NuvResult"
#include "NuvWatcher"
#include "WaitFor.h"

using namespace std::chrono_literals;

namespace {

// A watcher whose passes run a function the test chooses.
class TestWatcher : public NuvWatcher {
public:
    std::function<void()> onPass; // set before Start
    std::atomic<int> extraPasses{0};

    void t_SpecialEnumerate() override {}
    void t_ExtraEnumerate() override {
        ++extraPasses;
        if (onPass)
            onPass();
    }
    void SetWakeDescriptors(const struct pollfd* fds, int count) {
        t_SetWakeDescriptors(fds, count);
    }
};

class Watcher : public ::testing::Test {
protected:
    void TearDown() override { watcher.Destroy(); }
    TestWatcher watcher;
};

} // namespace

TEST_F(Watcher, AHungUpWakeDescriptorIsDroppedInsteadOfSpinning) {
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    close(pipeFds[1]); // the read end reports POLLHUP from now on
    struct pollfd fd = {pipeFds[0], POLLIN, 0};
    watcher.SetWakeDescriptors(&fd, 1);
    watcher.SetPeriod(0); // no timer: input and Stop alone end the wait
    ASSERT_EQ(watcher.Create(), NUV_OK);
    ASSERT_EQ(watcher.Start(), NUV_OK);

    ASSERT_TRUE(WaitFor([&] { return watcher.extraPasses >= 1; }));
    EXPECT_FALSE(WaitFor([&] { return watcher.extraPasses > 3; }, 200ms));
    watcher.Stop();
    close(pipeFds[0]);
}

TEST_F(Watcher, NoHookRunsOnceStopHasReturned) {
    std::atomic<bool> stopped{false};
    std::atomic<bool> hookAfterStop{false};
    watcher.onPass = [&] {
        if (stopped)
            hookAfterStop = true;
        std::this_thread::sleep_for(2ms); // a pass that takes a while
    };
    watcher.SetPeriod(1);
    ASSERT_EQ(watcher.Create(), NUV_OK);
    for (int round = 0; round < 20; ++round) {
        stopped = false;
        const int before = watcher.extraPasses;
        ASSERT_EQ(watcher.Start(), NUV_OK);
        ASSERT_TRUE(WaitFor([&] { return watcher.extraPasses > before + 1; }));
        watcher.Stop();
        stopped = true;
        const int after = watcher.extraPasses;
        EXPECT_FALSE(WaitFor([&] { return watcher.extraPasses != after; }, 5ms));
    }
    EXPECT_FALSE(hookAfterStop);
}
