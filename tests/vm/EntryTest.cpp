// The library's entry against the real sequencer: one instance at a time, a fresh set of
// objects per creation, and a creation whose last step fails leaves nothing behind.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>

#include "LogCapture.h"
#include "NuvDeviceManager"
#include "NuvMIDIEntry.h"
#include "NuvResult"
#include "SequencerView.h"
#include "ThreadNames.h"

namespace {
std::atomic<bool> g_failDeviceManager{false};
}

// Stands before the core's own (the executable's definitions come before libNuvCore.so's):
// the device manager, created last, fails while the test asks for it.
int NuvDeviceManager::Create(NuvConnectionManager* connectionManager) {
    static const auto real = reinterpret_cast<int (*)(NuvDeviceManager*, NuvConnectionManager*)>(
        dlsym(RTLD_NEXT, "_ZN16NuvDeviceManager6CreateEP20NuvConnectionManager"));
    return g_failDeviceManager ? NUV_ERR_GENERAL : real(this, connectionManager);
}

namespace {

// Nothing of a library is left: no entry, no watcher thread, no sequencer client.
void ExpectNoLibrary() {
    EXPECT_EQ(nullptr, NuvMIDIEntry::GetDeviceManagerInstance());
    EXPECT_EQ(nullptr, NuvMIDIEntry::m_entry);
    EXPECT_FALSE(NuvMIDIEntry::m_flagInit);
    EXPECT_EQ(0, CountThreadsNamed("NuvWatcher"));
    EXPECT_EQ(nullptr, SequencerView::Read().Find("MIDI Watcher"));
}

TEST(Entry, OneInstanceAtATimeAndAFreshSetOfObjectsForEachCreation) {
    NuvMIDIEntry::DeleteInstance(); // before any creation: nothing happens
    ExpectNoLibrary();
    NuvMIDIEntry* entry = NuvMIDIEntry::GetInstance();
    ASSERT_NE(nullptr, entry);
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    EXPECT_NE(nullptr, manager);
    EXPECT_EQ(entry, NuvMIDIEntry::GetInstance()); // a second creation builds nothing
    EXPECT_EQ(0, entry->Create());
    EXPECT_EQ(manager, NuvMIDIEntry::GetDeviceManagerInstance());
    EXPECT_EQ(1, CountThreadsNamed("NuvWatcher"));
    NuvMIDIEntry::DeleteInstance();
    ExpectNoLibrary();
}

// The earlier objects are destroyed again, newest first (the sanitizer builds see a wrong
// order or a leak); the next creation builds everything.
TEST(Entry, ACreationWhoseLastStepFailsLeavesNothingAndTheNextOneWorks) {
    LogCapture quiet(NUV_LOG_CRITICAL);
    g_failDeviceManager = true;
    EXPECT_EQ(nullptr, NuvMIDIEntry::GetInstance());
    g_failDeviceManager = false;
    ExpectNoLibrary();
    ASSERT_NE(nullptr, NuvMIDIEntry::GetInstance());
    EXPECT_NE(nullptr, NuvMIDIEntry::GetDeviceManagerInstance());
    NuvMIDIEntry::DeleteInstance();
}

} // namespace
