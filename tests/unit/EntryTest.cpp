// The library's entry on a machine without a sequencer: creation fails at its first step,
// leaves nothing behind (the ASan build checks for leaks) and is tried afresh next time.
#include <gtest/gtest.h>
#include <unistd.h>

#include "LogCapture.h"
#include "NuvMIDIEntry.h"
#include "ThreadNames.h"

TEST(EntryWithoutSequencer, CreationFailsAtTheWatcherAndLeavesNothingBehind) {
    if (access("/dev/snd/seq", F_OK) == 0)
        GTEST_SKIP() << "this machine has a sequencer: the VM tests cover creation";
    LogCapture quiet(NUV_LOG_CRITICAL);
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(NuvMIDIEntry::GetInstance(), nullptr);
        EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
        EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 0);
        NuvMIDIEntry::DeleteInstance(); // before a successful creation: changes nothing
    }
}
