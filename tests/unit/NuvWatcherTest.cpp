// The watcher thread: pass cadence, early passes on wake descriptors, stopping.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "NuvResult"
#include "NuvWatcher"
#include "WaitFor.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// A watcher whose passes run a function the test chooses.
class TestWatcher : public NuvWatcher {
public:
    std::function<void()> onPass; // set before Start
    std::atomic<int> specialPasses{0};
    std::atomic<int> extraPasses{0};

    void t_SpecialEnumerate() override { ++specialPasses; }
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

TEST_F(Watcher, RunsOnePassPerPeriodOnItsNamedThread) {
    std::mutex mutex;
    std::vector<Clock::time_point> passes;
    std::string threadName;
    watcher.onPass = [&] {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        std::lock_guard<std::mutex> lock(mutex);
        threadName = name;
        passes.push_back(Clock::now());
    };
    watcher.SetPeriod(30);
    ASSERT_EQ(watcher.Create(), NUV_OK);
    ASSERT_EQ(watcher.Start(), NUV_OK);
    ASSERT_TRUE(WaitFor([&] { return watcher.extraPasses >= 11; }));
    watcher.Stop();

    EXPECT_EQ(watcher.specialPasses.load(), watcher.extraPasses.load());
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(threadName, "NuvWatcher");
    std::vector<double> gaps;
    for (size_t i = 1; i < passes.size(); ++i)
        gaps.push_back(
            std::chrono::duration<double, std::milli>(passes[i] - passes[i - 1]).count());
    std::sort(gaps.begin(), gaps.end());
    const double median = gaps[gaps.size() / 2];
    EXPECT_GE(median, 28.0);
    EXPECT_LE(median, 60.0);
}

TEST_F(Watcher, InputOnAWakeDescriptorStartsAPassAtOnce) {
    const int wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_GE(wakeFd, 0);
    watcher.onPass = [&] {
        uint64_t value;
        while (read(wakeFd, &value, sizeof(value)) > 0) {
        }
    };
    struct pollfd fd = {wakeFd, POLLIN, 0};
    watcher.SetWakeDescriptors(&fd, 1);
    watcher.SetPeriod(60000);
    ASSERT_EQ(watcher.Create(), NUV_OK);
    ASSERT_EQ(watcher.Start(), NUV_OK);
    ASSERT_TRUE(WaitFor([&] { return watcher.extraPasses == 1; }));

    const uint64_t one = 1;
    ASSERT_EQ(write(wakeFd, &one, sizeof(one)), 8);
    EXPECT_TRUE(WaitFor([&] { return watcher.extraPasses == 2; }, 2s));
    ASSERT_EQ(write(wakeFd, &one, sizeof(one)), 8);
    EXPECT_TRUE(WaitFor([&] { return watcher.extraPasses == 3; }, 2s));
    watcher.Stop();
    close(wakeFd);
}

TEST_F(Watcher, AHungUpWakeDescriptorIsDroppedInsteadOfSpinning) {
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    close(pipeFds[1]); // the read end reports POLLHUP from now on
    struct pollfd fd = {pipeFds[0], POLLIN, 0};
    watcher.SetWakeDescriptors(&fd, 1);
    watcher.SetPeriod(60000);
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
