// NuvCallbackHandler: unregistration from another thread waits for the walk in progress (one
// call per registered callback is checked from the host's side: KeyboardCallbacks).
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
