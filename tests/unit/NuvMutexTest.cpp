// The recursive mutex and the report of its misuse.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "LogCapture.h"
#include "NuvThread"
#include "WaitFor.h"

using namespace std::chrono_literals;

namespace {

// How long a test watches for something that must not happen.
const auto kQuietWindow = 100ms;

std::string Report(const char* expression, const char* file, int line) {
    return std::string("ASSERT: ") + expression + " (" + file + ":" + std::to_string(line) + ")\n";
}

} // namespace

TEST(NuvMutex, WaiterProceedsOnlyAfterTheLastOfThreeUnlocks) {
    NuvMutex mutex;
    ASSERT_TRUE(mutex.Create());
    mutex.Lock();
    mutex.Lock();
    mutex.Lock();

    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        mutex.Lock();
        acquired = true;
        mutex.Unlock();
    });

    mutex.Unlock();
    mutex.Unlock();
    EXPECT_FALSE(WaitFor([&] { return acquired.load(); }, kQuietWindow));
    mutex.Unlock();
    EXPECT_TRUE(WaitFor([&] { return acquired.load(); }));
    waiter.join();
    mutex.Destroy();
}

TEST(NuvMutex, UnlockByAThreadThatDoesNotHoldItIsIgnored) {
    NuvMutex mutex;
    ASSERT_TRUE(mutex.Create());
    mutex.Lock();

    std::thread([&] { mutex.Unlock(); }).join();

    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        mutex.Lock();
        acquired = true;
        mutex.Unlock();
    });
    EXPECT_FALSE(WaitFor([&] { return acquired.load(); }, kQuietWindow));
    mutex.Unlock();
    EXPECT_TRUE(WaitFor([&] { return acquired.load(); }));
    waiter.join();
    mutex.Destroy();
}

TEST(NuvMutex, MisuseIsReportedWithTheHeaderPathAndLine) {
    LogCapture log;
    NuvMutex mutex;
    mutex.Destroy();
    ASSERT_TRUE(mutex.Create());
    EXPECT_FALSE(mutex.Create()); // the mutex in use is kept
    mutex.Destroy();

    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, Report("FlagCreate() == true", "Nuv/Core/Inc/NuvThread", 236));
    EXPECT_EQ(lines[1].text, Report("FlagCreate() == false", "Nuv/Core/Inc/NuvThread", 200));
    EXPECT_EQ(lines[1].level, NUV_LOG_ASSERT);
}
