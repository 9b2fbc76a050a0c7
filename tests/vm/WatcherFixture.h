// Shared pieces of the watcher's tests against the kernel's sequencer.
#ifndef NUV_TEST_VM_WATCHER_FIXTURE_H
#define NUV_TEST_VM_WATCHER_FIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "NuvMIDIWatcher.h"
#include "SequencerView.h"
#include "VirtualKeyboard.h"
#include "WaitFor.h"
#include "WatcherTestAccess.h"

using Access = NuvMIDIWatcherTestAccess;

// Counts, per candidate key, the client information records that the watcher releases.
class CountingWatcher : public NuvMIDIWatcher {
public:
    void t_DeleteExtraInfo(_NuvDetailDevInfo* info) override {
        if (info->pExtraInfo != nullptr) {
            std::lock_guard<std::mutex> lock(m_mutex);
            ++m_released[info->key];
        }
        NuvMIDIWatcher::t_DeleteExtraInfo(info);
    }
    int Released(const std::string& key) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_released[key];
    }

private:
    std::mutex m_mutex;
    std::map<std::string, int> m_released;
};

// A created watcher whose passes the test runs itself: the framework thread is not
// started, so the test may read the candidate map between passes.
class CreatedWatcherTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (SequencerView::Read().Clients().empty())
            GTEST_SKIP() << "no kernel sequencer";
        watcher.reset(new CountingWatcher());
        ASSERT_EQ(0, watcher->Create());
    }
    void TearDown() override {
        if (watcher) {
            EXPECT_EQ(0, watcher->Destroy());
        }
    }

    void Pass() { watcher->t_ExtraEnumerate(); }
    // Runs passes until the condition holds or the deadline has passed.
    template <typename Condition> bool PassUntil(Condition condition) {
        return WaitFor([&] {
            Pass();
            return condition();
        });
    }
    std::map<std::string, CandidateCopy> Candidates() { return Access::Candidates(*watcher); }
    bool HasCandidate(int client) { return Candidates().count(std::to_string(client)) == 1; }
    int WatcherClient() { return snd_seq_client_id(Access::Seq(*watcher)); }

    std::unique_ptr<CountingWatcher> watcher;
};

#endif
