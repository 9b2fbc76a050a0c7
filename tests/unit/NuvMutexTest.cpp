// The recursive mutex and the header checks that report misuse of the framework classes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "LogCapture.h"
#include "NuvConnector"
#include "NuvDevice"
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

TEST(NuvDeviceHeader, NegativeIdAndNullConnectorAreReportedAndStored) {
    LogCapture log;
    _NuvDetailDevInfo info{};
    NuvConnector connector(&info);

    NuvDevice negative(&connector, -1);
    EXPECT_EQ(negative.GetDeviceID(), -1);
    NuvDevice orphan(nullptr, 4);
    EXPECT_EQ(orphan.GetConnector(), nullptr);
    NuvConnector empty(nullptr);
    EXPECT_EQ(empty.GetDevInfo().UID[0], '\0');

    EXPECT_TRUE(log.Has(Report("id >= 0", "Nuv/Core/Inc/NuvDevice", 53), NUV_LOG_ASSERT));
    EXPECT_TRUE(log.Has(Report("connector != NULL", "Nuv/Core/Inc/NuvDevice", 52)));
    EXPECT_TRUE(log.Has(Report("info != NULL", "Nuv/Core/Inc/NuvConnector", 84)));
}

TEST(NuvConnectorHeader, DefaultsAnswerNotImplemented) {
    _NuvDetailDevInfo info{};
    snprintf(info.devicePath, sizeof(info.devicePath), "/dev/snd/seq");
    snprintf(info.devInfo.deviceName, sizeof(info.devInfo.deviceName), "Keys");
    NuvConnector connector(&info);
    EXPECT_STREQ(connector.GetDevInfo().deviceName, "Keys");

    LogCapture log;
    char buffer[4];
    int size = 0;
    EXPECT_EQ(connector.Create(), NUV_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(connector.Open(), NUV_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(connector.Read(buffer, sizeof(buffer)), NUV_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(connector.Write(buffer, sizeof(buffer)), NUV_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(connector.Control(1, buffer, size), NUV_ERR_NOT_IMPLEMENTED);
    EXPECT_FALSE(connector.IsRegistered());
    connector.Close();
    connector.Destroy();
    EXPECT_EQ(log.Count("ERROR: Not Implemented!\n", NUV_LOG_INFO), 8);
}
