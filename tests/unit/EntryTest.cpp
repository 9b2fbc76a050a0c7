// The library's entry on a machine without a sequencer: creation fails at its first step
// and leaves nothing behind (the ASan build checks for leaks).
#include <gtest/gtest.h>
#include <unistd.h>

#include "LogCapture.h"
#include "NuvMIDIEntry.h"
#include "ThreadNames.h"

namespace {
const char* const kIn = "\n\n <--- IN --- \n\n\n";
const char* const kOut = "\n\n --- OUT ---> \n\n\n";
} // namespace

TEST(EntryWithoutSequencer, CreationFailsAtTheWatcherAndLeavesNothingBehind) {
    if (access("/dev/snd/seq", F_OK) == 0)
        GTEST_SKIP() << "this machine has a sequencer: the VM tests cover creation";
    LogCapture log(NUV_LOG_INFO);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);

    EXPECT_EQ(NuvMIDIEntry::GetInstance(), nullptr);
    EXPECT_EQ(NuvMIDIEntry::m_entry, nullptr);
    EXPECT_FALSE(NuvMIDIEntry::m_flagInit);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
    EXPECT_EQ(log.Count(kIn, NUV_LOG_INFO), 1);
    EXPECT_EQ(log.Count(kOut), 0);
    EXPECT_FALSE(log.Has("INFO: m_CreateDeviceManager().\n")); // the watcher failed first
    EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 0);

    // Nothing remembers the failure: the next call tries again from the start.
    EXPECT_EQ(NuvMIDIEntry::GetInstance(), nullptr);
    EXPECT_EQ(log.Count(kIn), 2);
    NuvMIDIEntry::DeleteInstance(); // before a successful creation: changes nothing
    EXPECT_EQ(log.Count(kIn), 2);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
}
