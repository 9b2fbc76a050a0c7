// NuvThread: name, stack size, and Destroy returning once t_Main has returned.
#include <gtest/gtest.h>

#include <limits.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>

#include "NuvThread"
#include "WaitFor.h"

using namespace std::chrono_literals;

namespace {

// Records what the running thread sees of itself, then waits to be released.
class ProbeThread : public NuvThread {
public:
    void t_Main() override {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        seenName = name;
        pthread_attr_t attr;
        if (pthread_getattr_np(pthread_self(), &attr) == 0) {
            pthread_attr_getstacksize(&attr, &seenStack);
            pthread_attr_destroy(&attr);
        }
        started = true;
        release.get_future().wait();
        returned = true;
    }

    std::string seenName;
    size_t seenStack = 0;
    std::atomic<bool> started{false};
    std::atomic<bool> returned{false};
    std::promise<void> release;
};

// Destroys itself from its own t_Main, as a thread that ends on its own would.
class SelfDestroyingThread : public NuvThread {
public:
    void t_Main() override {
        result = Destroy();
        done = true;
    }
    std::atomic<int> result{-1};
    std::atomic<bool> done{false};
};

} // namespace

TEST(NuvThread, RunsWithTheGivenNameAndStackSizeCutAndRaisedToWhatTheSystemAllows) {
    struct Case {
        const char* name;
        size_t stack;
        const char* seenName;
        size_t minStack, maxStack;
    };
    for (const Case& c : {Case{"NuvMIDIRenderer", 0x100000, "NuvMIDIRenderer", 0x100000, 0x110000},
                          Case{"AThreadNameLongerThanFifteen", 1, "AThreadNameLong",
                               size_t(PTHREAD_STACK_MIN), 0x1000000}}) {
        ProbeThread thread;
        ASSERT_TRUE(thread.Create(c.name, c.stack));
        EXPECT_FALSE(thread.Create("Twice", 0));
        ASSERT_TRUE(WaitFor([&] { return thread.started.load(); }));
        EXPECT_EQ(c.seenName, thread.seenName);
        EXPECT_STREQ(c.seenName, thread.GetName());
        EXPECT_GE(thread.seenStack, c.minStack);
        EXPECT_LT(thread.seenStack, c.maxStack);
        thread.release.set_value();
        EXPECT_EQ(0, thread.Destroy());
        EXPECT_FALSE(thread.FlagCreate());
    }
}

TEST(NuvThread, DestroyReturnsOnlyOnceTMainHasReturned) {
    ProbeThread thread;
    ASSERT_TRUE(thread.Create("Probe", 0));
    ASSERT_TRUE(WaitFor([&] { return thread.started.load(); }));

    std::atomic<bool> destroyed{false};
    auto destroyer = std::async(std::launch::async, [&] {
        thread.Destroy();
        destroyed = true;
        return thread.returned.load();
    });
    EXPECT_FALSE(WaitFor([&] { return destroyed.load(); }, 100ms));
    thread.release.set_value();
    EXPECT_TRUE(destroyer.get()) << "Destroy returned before t_Main did";
}

TEST(NuvThread, DestroyFromTheThreadItselfDoesNotDeadlock) {
    SelfDestroyingThread thread;
    ASSERT_TRUE(thread.Create("Self", 0));
    ASSERT_TRUE(WaitFor([&] { return thread.done.load(); }));
    EXPECT_EQ(0, thread.result.load());
    EXPECT_FALSE(thread.FlagCreate());
    EXPECT_EQ(0, thread.Destroy());
}
