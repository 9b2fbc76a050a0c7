// The watcher thread: pass cadence, early passes on wake descriptors, stopping.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "NuvResult"
#include "NuvWatcher"
#include "WaitFor.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// A watcher whose passes run a function the test chooses; it exposes the protected
// candidate operations and counts the extra-info records it releases, per key.
class TestWatcher : public NuvWatcher {
public:
    std::function<void()> onPass; // set before Start
    std::atomic<int> specialPasses{0};
    std::atomic<int> extraPasses{0};
    std::map<std::string, int> released; // only the test's thread releases records

    void t_SpecialEnumerate() override { ++specialPasses; }
    void t_ExtraEnumerate() override {
        ++extraPasses;
        if (onPass)
            onPass();
    }
    void t_DeleteExtraInfo(_NuvDetailDevInfo* info) override {
        ++released[info->key];
        delete static_cast<int*>(info->pExtraInfo);
        info->pExtraInfo = nullptr;
    }

    int AddCandidate(const char* key) {
        auto* info = new _NuvDetailDevInfo();
        snprintf(info->key, sizeof(info->key), "%s", key);
        snprintf(info->devInfo.UID, sizeof(info->devInfo.UID), "%s", key);
        info->devInfo.type = NUV_DEVICE_TYPE_MIDI;
        info->pExtraInfo = new int(0);
        return t_AddCandidate(info);
    }
    int DeleteCandidate(const char* key) { return t_DeleteCandidate(key); }
    void SetWakeDescriptors(const struct pollfd* fds, int count) {
        t_SetWakeDescriptors(fds, count);
    }
    int ParseMajorMinor(_NuvDetailDevInfo* info, const char* path) {
        return t_ParseMajorMinorNumber(info, path);
    }
    size_t CandidateCount() {
        NuvMutexGuard guard(m_mutex);
        return m_mapCandidate.size();
    }
};

class Watcher : public ::testing::Test {
protected:
    void TearDown() override { watcher.Destroy(); }
    TestWatcher watcher;
};

} // namespace

TEST_F(Watcher, StartNeedsCreateAndStopIsSafeAnyTime) {
    EXPECT_EQ(watcher.Start(), NUV_ERR_CREATE_THREAD);
    watcher.Stop();
    ASSERT_EQ(watcher.Create(), NUV_OK);
    watcher.Stop();
    EXPECT_EQ(watcher.extraPasses, 0); // Create runs no hook
    ASSERT_EQ(watcher.Start(), NUV_OK);
    watcher.Stop();
    watcher.Stop();
}

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
    watcher.SetPeriod(0); // no timer: input and Stop alone end the wait
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
    LogCapture log;
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    close(pipeFds[1]); // the read end reports POLLHUP from now on
    struct pollfd fd = {pipeFds[0], POLLIN, 0};
    watcher.SetWakeDescriptors(&fd, 1);
    watcher.SetPeriod(0); // no timer: input and Stop alone end the wait
    ASSERT_EQ(watcher.Create(), NUV_OK);
    ASSERT_EQ(watcher.Start(), NUV_OK);

    ASSERT_TRUE(WaitFor([&] { return log.CountContaining("dropped") == 1; }));
    EXPECT_FALSE(WaitFor([&] { return watcher.extraPasses > 2; }, 200ms));
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

TEST(WatcherCandidates, DestroyRemovesEveryCandidateAndReleasesEachRecordOnce) {
    TestWatcher watcher;
    ASSERT_EQ(watcher.Create(), NUV_OK);
    EXPECT_EQ(watcher.AddCandidate("20"), 0);
    EXPECT_EQ(watcher.AddCandidate("21"), 0);
    EXPECT_EQ(watcher.AddCandidate("20"), 1);
    EXPECT_EQ(watcher.released["20"], 1); // the discarded duplicate
    EXPECT_EQ(watcher.CandidateCount(), 2u);

    EXPECT_EQ(watcher.Destroy(), NUV_OK);
    EXPECT_EQ(watcher.released["20"], 2);
    EXPECT_EQ(watcher.released["21"], 1);
    EXPECT_EQ(watcher.DeleteCandidate("20"), NUV_ERR_GENERAL);
}

TEST(WatcherDeviceNode, MajorMinorMustMatchAnExistingCharacterDevice) {
    TestWatcher watcher;
    struct stat node;
    ASSERT_EQ(stat("/dev/null", &node), 0);
    char uevent[] = "/tmp/nuv_uevent_XXXXXX";
    const int fd = mkstemp(uevent);
    ASSERT_GE(fd, 0);
    const std::string text = "DEVNAME=null\nMAJOR=" + std::to_string(major(node.st_rdev)) +
                             "\nMINOR=" + std::to_string(minor(node.st_rdev)) + "\n";
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);

    _NuvDetailDevInfo probe{};
    snprintf(probe.devicePath, sizeof(probe.devicePath), "/dev/null");
    EXPECT_NE(watcher.ParseMajorMinor(&probe, uevent), 0);
    snprintf(probe.devicePath, sizeof(probe.devicePath), "/dev/zero"); // other minor
    EXPECT_EQ(watcher.ParseMajorMinor(&probe, uevent), 0);
    snprintf(probe.devicePath, sizeof(probe.devicePath), "/tmp");
    EXPECT_EQ(watcher.ParseMajorMinor(&probe, uevent), 0);
    EXPECT_EQ(watcher.ParseMajorMinor(&probe, "/nonexistent/uevent"), 0);
    unlink(uevent);
}
