// The library's entry against the real sequencer: one instance at a time, a fresh set of
// objects per creation, and a creation whose last step fails leaves nothing behind; and its
// loading of kernel modules.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>

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

// Waiting for a kernel module and then running the commands that load the others: a listed
// module is found on the first read, one never listed after ten more, one second apart by
// design; the commands run in order either way, and a failing one is no error.
TEST(Modules, TheCommandsRunInOrderOnceTheModuleIsListedOrTheWaitGivesUp) {
    const std::string out = "/tmp/nuv_modules_order";
    const std::string first = "echo first >> " + out, second = "echo second >> " + out;
    const char* commands[] = {first.c_str(), "exit 3", "/nonexistent/insmod", second.c_str(),
                              nullptr};
    const struct {
        const char* module;
        int reads;
        double seconds;
    } cases[] = {{"snd_seq", 1, 1.0}, {"nuv_no_such_module", 11, 10.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.module);
        unlink(out.c_str());
        LogCapture log(NUV_LOG_INFO);
        const auto start = std::chrono::steady_clock::now();
        NuvMIDIEntry::m_InsertModules(c.module, commands);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;

        std::stringstream written;
        written << std::ifstream(out).rdbuf();
        EXPECT_EQ("first\nsecond\n", written.str());
        std::vector<std::string> expected = {"INFO: _nuv_InsertModule().\n"};
        for (int read = 1; read <= c.reads; ++read) {
            expected.push_back("INFO: _nuv_ReadProcModules().\n");
            if (read <= 10 && c.reads > 1)
                expected.push_back("INFO: --- NUV MODULE CHECKING... ---[" + std::to_string(read) +
                                   "]");
        }
        if (c.reads == 1)
            expected.push_back("INFO: --- NUV MODULE CHECKED!! ---\n");
        for (const char* command : {first.c_str(), "exit 3", "/nonexistent/insmod", second.c_str()})
            expected.push_back("INFO: Insert module - " + std::string(command) + ".");
        expected.push_back("INFO: D/D Modules for NUV is loaded complete!\n");
        std::vector<std::string> texts;
        for (const LogLine& line : log.Lines())
            texts.push_back(line.text);
        EXPECT_EQ(expected, texts);
        EXPECT_GE(took.count(), c.seconds - 0.1);
        EXPECT_LT(took.count(), c.seconds + 2.0);
    }
    unlink(out.c_str());
}

} // namespace
