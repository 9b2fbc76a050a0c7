// The library's entry against the real sequencer: one instance, a fresh set of objects per
// creation, and rollback newest first when a creation step fails.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EntryShim.h"
#include "NuvMIDIEntry.h"
#include "ThreadNames.h"
#include "WaitFor.h"

namespace {

const std::vector<std::string> kFullCreation = {"create watcher", "create checker",
                                                "create connection manager",
                                                "create device manager", "start watcher"};
const std::vector<std::string> kFullDestruction = {
    "destroy device manager", "destroy connection manager", "destroy checker", "destroy watcher"};

class Entry : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(NuvMIDIEntry::m_entry, nullptr); }
    void TearDown() override {
        EntryShim::Disarm();
        NuvMIDIEntry::DeleteInstance();
        EXPECT_EQ(NuvMIDIEntry::m_entry, nullptr);
        EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 0);
    }
};

std::vector<std::string> Concat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST_F(Entry, OneInstanceAtATimeAndAFreshSetOfObjectsForEachCreation) {
    EntryShim::Arm();
    NuvMIDIEntry::DeleteInstance(); // before any creation: nothing happens
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);

    NuvMIDIEntry* entry = NuvMIDIEntry::GetInstance();
    ASSERT_NE(entry, nullptr);
    INuvMIDIDeviceManager* manager = NuvMIDIEntry::GetDeviceManagerInstance();
    EXPECT_NE(manager, nullptr);
    EXPECT_EQ(NuvMIDIEntry::GetInstance(), entry); // a second creation builds nothing
    EXPECT_EQ(entry->Create(), 0);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), manager);
    EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 1);

    NuvMIDIEntry::DeleteInstance();
    EXPECT_FALSE(NuvMIDIEntry::m_flagInit);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
    EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 0);

    ASSERT_NE(NuvMIDIEntry::GetInstance(), nullptr);
    EXPECT_NE(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
    EXPECT_EQ(EntryShim::Calls(), Concat(Concat(kFullCreation, kFullDestruction), kFullCreation));
}

struct RollbackCase {
    EntryStep failing;
    std::vector<std::string> calls;
};

class EntryRollback : public Entry, public ::testing::WithParamInterface<RollbackCase> {};

TEST_P(EntryRollback, AFailedStepDestroysTheEarlierObjectsNewestFirstAndStartsNothing) {
    EntryShim::Arm(GetParam().failing);

    EXPECT_EQ(NuvMIDIEntry::GetInstance(), nullptr);
    EXPECT_EQ(NuvMIDIEntry::m_entry, nullptr);
    EXPECT_FALSE(NuvMIDIEntry::m_flagInit);
    EXPECT_EQ(NuvMIDIEntry::GetDeviceManagerInstance(), nullptr);
    EXPECT_EQ(EntryShim::Calls(), GetParam().calls);
    EXPECT_EQ(CountThreadsNamed("NuvWatcher"), 0);

    // Nothing of the failure stays: the next call builds everything.
    EntryShim::Arm();
    ASSERT_NE(NuvMIDIEntry::GetInstance(), nullptr);
    EXPECT_EQ(EntryShim::Calls(), kFullCreation);
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, EntryRollback,
    ::testing::Values(RollbackCase{EntryStep::Watcher, {"create watcher"}},
                      RollbackCase{EntryStep::Checker,
                                   {"create watcher", "create checker", "destroy watcher"}},
                      RollbackCase{EntryStep::ConnectionManager,
                                   {"create watcher", "create checker", "create connection manager",
                                    "destroy checker", "destroy watcher"}},
                      RollbackCase{EntryStep::DeviceManager,
                                   {"create watcher", "create checker", "create connection manager",
                                    "create device manager", "destroy connection manager",
                                    "destroy checker", "destroy watcher"}}),
    [](const ::testing::TestParamInfo<RollbackCase>& info) {
        switch (info.param.failing) {
        case EntryStep::Watcher:
            return std::string("Watcher");
        case EntryStep::Checker:
            return std::string("Checker");
        case EntryStep::ConnectionManager:
            return std::string("ConnectionManager");
        default:
            return std::string("DeviceManager");
        }
    });
