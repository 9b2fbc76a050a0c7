// NuvCallbackHandler: registration rules, changes of the registry during a walk, and
// unregistration from another thread waiting for the walk in progress.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "NuvCallback"
#include "NuvResult"
#include "WaitFor.h"

using namespace std::chrono_literals;

namespace {

class Probe : public NuvCallback {
public:
    std::atomic<int> calls{0};
    std::function<void()> action;
    int lastEvent = 0;
    void* lastArg1 = nullptr;
    int t_OnCallback(int event, void* arg1, void*, void*) override {
        ++calls;
        lastEvent = event;
        lastArg1 = arg1;
        if (action)
            action();
        return 0;
    }
};

class Handler : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(handler.Create(), NUV_OK); }
    void TearDown() override { handler.Destroy(); }
    NuvCallbackHandler handler;
};

} // namespace

TEST_F(Handler, EveryRegisteredCallbackIsCalledOnceWithTheArguments) {
    Probe a, b;
    int value = 5;
    EXPECT_EQ(handler.RegisterCallback(&a), NUV_OK);
    EXPECT_EQ(handler.RegisterCallback(&a), NUV_OK); // held once
    EXPECT_EQ(handler.RegisterCallback(&b), NUV_OK);
    EXPECT_EQ(handler.RegisterCallback(nullptr), NUV_ERR_GENERAL);

    handler.ExecuteCallback(16, &value, nullptr, nullptr);
    EXPECT_EQ(a.calls, 1);
    EXPECT_EQ(b.calls, 1);
    EXPECT_EQ(a.lastEvent, 16);
    EXPECT_EQ(a.lastArg1, &value);

    EXPECT_EQ(handler.UnregisterCallback(&a), NUV_OK);
    EXPECT_EQ(handler.UnregisterCallback(&a), NUV_ERR_GENERAL);
    handler.ExecuteCallback(16, nullptr, nullptr, nullptr);
    EXPECT_EQ(a.calls, 1);
    EXPECT_EQ(b.calls, 2);
}

TEST_F(Handler, ACallbackUnregisteredDuringTheWalkIsNotCalledInIt) {
    Probe a, b;
    Probe& first = &a < &b ? a : b; // called first: keys ascend with the address
    Probe& second = &a < &b ? b : a;
    first.action = [&] { handler.UnregisterCallback(&second); };
    handler.RegisterCallback(&a);
    handler.RegisterCallback(&b);

    handler.ExecuteCallback(1, nullptr, nullptr, nullptr);
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
}

TEST_F(Handler, UnregisterFromAnotherThreadWaitsForTheWalkInProgress) {
    Probe slow;
    std::mutex mutex;
    std::condition_variable cv;
    bool inside = false, release = false;
    slow.action = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        inside = true;
        cv.notify_all();
        cv.wait(lock, [&] { return release; });
    };
    handler.RegisterCallback(&slow);

    std::thread walker([&] { handler.ExecuteCallback(1, nullptr, nullptr, nullptr); });
    {
        std::unique_lock<std::mutex> lock(mutex);
        cv.wait(lock, [&] { return inside; });
    }
    std::atomic<bool> unregistered{false};
    std::thread host([&] {
        handler.UnregisterCallback(&slow);
        unregistered = true;
    });
    EXPECT_FALSE(WaitFor([&] { return unregistered.load(); }, 100ms));
    {
        std::lock_guard<std::mutex> lock(mutex);
        release = true;
        cv.notify_all();
    }
    walker.join();
    host.join();
    EXPECT_TRUE(unregistered);
    handler.ExecuteCallback(1, nullptr, nullptr, nullptr);
    EXPECT_EQ(slow.calls, 1);
}
