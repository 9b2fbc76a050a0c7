// The watcher without a sequencer: failed creation leaves nothing behind, candidate
// records carry every fixed field, and the pass keeps candidates marked present.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cstring>
#include <map>
#include <string>

#include "LogCapture.h"
#include "NuvMIDIWatcher.h"
#include "WatcherTestAccess.h"

namespace {

using Access = NuvMIDIWatcherTestAccess;

bool KernelHasSequencer() {
    struct stat status;
    return lstat("/sys/class/sound/seq/uevent", &status) == 0;
}

// Counts the client information records that the watcher releases, per key.
class CountingWatcher : public NuvMIDIWatcher {
public:
    void t_DeleteExtraInfo(_NuvDetailDevInfo* info) override {
        if (info->pExtraInfo != nullptr)
            ++released[info->key];
        NuvMIDIWatcher::t_DeleteExtraInfo(info);
    }
    std::map<std::string, int> released;
};

TEST(MIDIWatcherCreate, WithoutKernelSequencerFailsAndLeavesNothing) {
    if (KernelHasSequencer())
        GTEST_SKIP() << "this machine has a sequencer";
    LogCapture log;
    auto* watcher = new NuvMIDIWatcher();
    EXPECT_EQ(9, Access::WatcherType(*watcher));

    EXPECT_EQ(9999, watcher->Create());
    // Its owner deletes a watcher whose Create failed without calling Destroy.
    delete watcher;

    EXPECT_TRUE(log.Has("\n[NuvMIDIWatcher::Create] Sequencer creation failed\n\n", NUV_LOG_INFO));
    EXPECT_EQ(0, log.CountContaining("ASSERT:"));
}

// Without a sequencer FluidSynth's sequencer MIDI driver cannot start: the synthesizer
// that was made is released again (the sanitizer build checks for leaks).
TEST(MIDIWatcherCreate, SynthesizerWithoutMIDIDriverIsReleased) {
    if (KernelHasSequencer())
        GTEST_SKIP() << "this machine has a sequencer";
    NuvMIDIWatcher watcher;
    LogCapture log;

    EXPECT_EQ(9999, Access::CreateSynthesizer(watcher));

    EXPECT_EQ(nullptr, Access::Synth(watcher));
    EXPECT_EQ(nullptr, Access::Settings(watcher));
    EXPECT_EQ(nullptr, Access::Driver(watcher));
    EXPECT_EQ(1, log.CountContaining("new_fluid_synth or new_fluid_midi_driver failed"));
}

// Each creation above makes a whole synthesizer and releases it again: a hundred of them
// must leave the heap as they found it (FluidSynth's DLS loader once lost 2.4 KiB each).
TEST(MIDIWatcherCreate, SynthesizersComeAndGoWithoutGrowingTheHeap) {
    if (KernelHasSequencer())
        GTEST_SKIP() << "this machine has a sequencer";
    NuvMIDIWatcher watcher;
    LogCapture quiet(NUV_LOG_ASSERT);
    Access::CreateSynthesizer(watcher); // the first pays for what stays for good
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i)
        Access::CreateSynthesizer(watcher);
    // Under the sanitizers, whose allocators glibc cannot see, both readings are 0.
    EXPECT_LT(long(mallinfo2().uordblks) - long(before), 100 * 100);
}

// Only the framework part is created: the candidate map works, no sequencer is open.
TEST(MIDIWatcherCandidates, SecondPortOfAClientIsReleasedOnceAndPassMarksPresent) {
    CountingWatcher watcher;
    ASSERT_EQ(0, watcher.NuvWatcher::Create());
    Access::AddDevice(watcher, 20, 0, 0);
    Access::AddDevice(watcher, 20, 1, 0); // same key: the framework keeps the first
    EXPECT_EQ(1, watcher.released["20"]);
    ASSERT_EQ(1u, Access::Candidates(watcher).size());
    EXPECT_EQ(0, Access::Candidates(watcher).at("20").clientInfo.port);

    // A pass without a sequencer reads nothing and marks every candidate present.
    Access::Candidate(watcher, "20")->alive = 0;
    watcher.t_ExtraEnumerate();
    EXPECT_EQ(1, Access::Candidates(watcher).at("20").record.alive);

    Access::DeleteCandidate(watcher, "20");
    EXPECT_EQ(2, watcher.released["20"]);
    EXPECT_TRUE(Access::Candidates(watcher).empty());
    EXPECT_EQ(0, watcher.NuvWatcher::Destroy());
}

} // namespace
