// NuvCallbackHandler: one call per registered callback, changes of the registry during a
// walk, and unregistration from another thread waiting for the walk in progress.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
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
    int t_OnCallback(int, void*, void*, void*) override {
        ++calls;
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

// Keys ascend with the address: the callback at the lower address is called first.
TEST_F(Handler, ATwiceRegisteredCallbackIsCalledOnceAndOneUnregisteredDuringTheWalkNotAtAll) {
    Probe a, b;
    Probe& first = &a < &b ? a : b;
    Probe& second = &a < &b ? b : a;
    EXPECT_EQ(handler.RegisterCallback(&first), NUV_OK);
    EXPECT_EQ(handler.RegisterCallback(&first), NUV_OK);
    EXPECT_EQ(handler.RegisterCallback(&second), NUV_OK);
    handler.ExecuteCallback(16, nullptr, nullptr, nullptr);
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 1);

    first.action = [&] { handler.UnregisterCallback(&second); };
    handler.ExecuteCallback(17, nullptr, nullptr, nullptr);
    EXPECT_EQ(first.calls, 2);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(Handler, UnregisterFromAnotherThreadWaitsForTheWalkInProgress) {
    Probe slow;
    std::promise<void> open; // broken, and so open, if the test ends early
    std::shared_future<void> gate = open.get_future().share();
    slow.action = [&] { gate.wait(); };
    handler.RegisterCallback(&slow);
    std::thread walker([&] { handler.ExecuteCallback(1, nullptr, nullptr, nullptr); });
    ASSERT_TRUE(WaitFor([&] { return slow.calls == 1; }));
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
    EXPECT_EQ(slow.calls, 1);
}
