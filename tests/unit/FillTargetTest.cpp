// The low-latency writer's fill target: widened by each underrun, narrowed on trial after a
// calm while, and a trial that runs dry makes the next one wait twice as long.
#include <gtest/gtest.h>

#include "FillTarget.h"

namespace {

constexpr unsigned long kRate = 48000, kPeriod = 192, kBuffer = 8 * kPeriod;
using Change = NuvFillTarget::Change;

// Sound without running dry until the target next changes (or the cap of calm is passed).
Change PlayCalmly(NuvFillTarget& target, unsigned long seconds) {
    for (unsigned long i = 0; i < seconds * kRate / kPeriod; ++i) {
        target.Asked(kPeriod);
        const Change change = target.Update(false);
        if (change != Change::None)
            return change;
    }
    return Change::None;
}

TEST(FillTarget, WidensByAPeriodEachTimeItRunsDryUpToTheBufferLessAPeriod) {
    NuvFillTarget target(kRate, kPeriod, kBuffer);
    EXPECT_EQ(3 * kPeriod, target.Frames()); // 8 ms left when woken a period below it
    EXPECT_EQ(2 * kPeriod, target.WakeLevel());
    for (unsigned long frames = 4 * kPeriod; frames < kBuffer; frames += kPeriod) {
        EXPECT_EQ(Change::Widened, target.Update(true));
        EXPECT_EQ(frames, target.Frames());
    }
    EXPECT_EQ(Change::None, target.Update(true));
    EXPECT_EQ(kBuffer - kPeriod, target.Frames());
}

TEST(FillTarget, NarrowsAfterTenCalmSecondsButNeverBelowTheFirstTarget) {
    NuvFillTarget target(kRate, kPeriod, kBuffer);
    target.Update(true);
    target.Update(true);
    EXPECT_EQ(Change::None, PlayCalmly(target, 9));
    EXPECT_EQ(Change::Narrowed, PlayCalmly(target, 2));
    EXPECT_EQ(4 * kPeriod, target.Frames());
    EXPECT_EQ(Change::Narrowed, PlayCalmly(target, 11)); // the trial passed: no longer wait
    EXPECT_EQ(3 * kPeriod, target.Frames());
    EXPECT_EQ(Change::None, PlayCalmly(target, 30));
    EXPECT_EQ(3 * kPeriod, target.Frames());
}

TEST(FillTarget, EachFailedTrialDoublesTheCalmBeforeTheNextUpTo160Seconds) {
    NuvFillTarget target(kRate, kPeriod, kBuffer);
    target.Update(true); // the machine needs four periods
    for (unsigned long calm : {10ul, 20ul, 40ul, 80ul, 160ul, 160ul}) {
        EXPECT_EQ(calm, target.CalmSeconds());
        EXPECT_EQ(Change::None, PlayCalmly(target, calm - 1));
        ASSERT_EQ(Change::Narrowed, PlayCalmly(target, 2));
        EXPECT_EQ(Change::Widened, target.Update(true)); // three ran dry again
    }
}

TEST(FillTarget, AnUnderrunAfterATrialPassedLeavesTheCalmAsItWas) {
    NuvFillTarget target(kRate, kPeriod, kBuffer);
    target.Update(true);
    ASSERT_EQ(Change::Narrowed, PlayCalmly(target, 11));
    EXPECT_EQ(Change::None, PlayCalmly(target, 11)); // ten calm seconds at the first target
    EXPECT_EQ(Change::Widened, target.Update(true));
    EXPECT_EQ(10ul, target.CalmSeconds());
}

} // namespace
