// SPDX-License-Identifier: Apache-2.0

// What the simulated hardware does when the log does not tell enough, or when it starts: how far it
// goes, what it keeps, what it takes off, and that it does so in steps beside a writer at work.

#include <random>
#include <string>

#include "HardwareFixture.h"

namespace {

using hardware_test::Content;
using hardware_test::kOther;
using hardware_test::kPlenty;
using hardware_test::kThird;
using hardware_test::kUnit0;
using LoamFec::FecTableConstants;
using ::testing::IsEmpty;
using testing_support::FecHarness;

class ResynchronisationTest : public hardware_test::HardwareFixture {
 protected:
  // An announcement of a table that nobody knows is lost, so that the next step begins a repair.
  void loseAnAnnouncement() {
    announce(Asic::SwTableId(0x05000000), ++lost_);
    loseGroupRow(harness_.group()->groupLog()->logMap().control().scratchpad());
  }
  // Writes these keys in one go.
  void fill(std::uint32_t first, std::uint32_t last, std::uint32_t mark) {
    for (std::uint32_t fecId = first; fecId <= last; ++fecId) {
      harness_.table().entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1", mark), nullptr);
    }
    harness_.run();
  }
  std::uint64_t version() { return harness_.log().tableVersion().value(); }

 private:
  std::uint64_t lost_ = 0;
};

// ---- what starts it, and what it finds

TEST_F(ResynchronisationTest, AMissingLogRowIsRepairedFromTheConfigurationTable) {
  write(1, 1);
  write(2, 2);
  loseLogRow(1);
  asic_->step(kPlenty);
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 2U);
  EXPECT_NE(held(1), nullptr);
  EXPECT_NE(held(2), nullptr);
  write(3);
  asic_->step(kPlenty);
  EXPECT_NE(held(3), nullptr);
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, AMissingGroupRowIsRepairedFromTheConfigurationTable) {
  write(1);
  loseGroupRow(1);
  asic_->step(kPlenty);
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 1U);
  EXPECT_NE(held(1), nullptr);
}

TEST_F(ResynchronisationTest, AFreshOneHoldsWhatIsCommittedAndNothingDeleted) {
  write(1, 1);
  write(2, 2);
  remove(1);
  start();
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(held(1), nullptr);
  EXPECT_NE(held(2), nullptr);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->operationsApplied(), 0U);
}

TEST_F(ResynchronisationTest, ResynchronisationCountsWhatItRepairs) {
  write(1, 1);
  write(2, 2);
  write(3, 3);
  asic_->step(kPlenty);
  write(2, 20);
  write(4, 4);
  remove(3);
  const Asic::Resynchronisation found = asic_->resynchronise();
  EXPECT_EQ(found.unchanged, 1U);
  EXPECT_EQ(found.changed, 1U);
  EXPECT_EQ(found.added, 1U);
  EXPECT_EQ(found.removed, 1U);
  EXPECT_EQ(held(2)->opaqueA, 20U);
  EXPECT_EQ(applied(), 6U);
}

TEST_F(ResynchronisationTest, ADamagedLogRowIsRepairedLikeOneThatIsMissing) {
  write(1, 1);
  const std::string path = harness_.log().tableEntryLog()->entryLogConfig().filePath();
  testing_support::damageRow(path, testing_support::TablePlaces(path).liveSlots().front());
  asic_->step(kPlenty);
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 1U);
  EXPECT_NE(held(1), nullptr);
}

TEST_F(ResynchronisationTest, SeveralRowsThatAreMissingAreOneRepairAndEachIsCounted) {
  write(1, 1);
  write(2, 2);
  write(3, 3);
  loseGroupRow(1);
  loseGroupRow(3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(asic_->missedGroupRows(), 2U);
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(hardware(), committed());
  write(4, 4);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(asic_->operationsApplied(), 1U) << "from the log again";
}

TEST_F(ResynchronisationTest, AStartIsNoRepairAndMissesNothing) {
  write(1, 1);
  write(2, 2);
  harness_.reportAll();
  write(3, 3);
  start();
  EXPECT_EQ(asic_->repairs(), 0U);
  EXPECT_EQ(asic_->missedGroupRows(), 0U);
  remove(3);
  EXPECT_EQ(asic_->resynchronise().removed, 1U);
  const Asic::Resynchronisation again = asic_->resynchronise();
  EXPECT_EQ(again.unchanged, 2U);
  EXPECT_EQ(again.removed, 0U) << "the row that is marked deleted has nothing to take off any more";
  EXPECT_EQ(asic_->repairs(), 0U);
}

TEST_F(ResynchronisationTest, WhatHasNoRowAtAllIsTakenOffAndCounted) {
  harness_.table(1);
  startWith({kUnit0, Asic::UnitId(1)});
  fill(1, 9, 1);
  for (std::uint32_t fecId = 1; fecId <= 3; ++fecId) {
    harness_.table(1).entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr);
  }
  harness_.run();
  asic_->step(kPlenty);
  config(0).rowDel(FecHarness::key(9));
  config(1).rowDel(FecHarness::key(1));
  const Asic::Resynchronisation found = asic_->resynchronise();
  EXPECT_EQ(found.removed, 2U);
  EXPECT_EQ(found.unchanged, 10U);
  EXPECT_EQ(hardware(0), committed(0));
  EXPECT_EQ(hardware(1), committed(1));
}

TEST_F(ResynchronisationTest, DamageInTheGroupLogAtAStartIsCounted) {
  write(1, 1);
  write(2, 2);
  const std::string path = harness_.group()->groupLog()->logMap().filePath();
  testing_support::damageRow(path, testing_support::TablePlaces(path).liveSlots().front());
  start();
  EXPECT_EQ(asic_->missedGroupRows(), 1U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, AStartAsksTheLogOnlyWhenRowsLeaveSomethingOpen) {
  fill(1, 1000, 1);
  const std::uint64_t before = Zev::WorkMeter::total();
  EXPECT_EQ(asic_->resynchronise().added, 1000U);
  const std::uint64_t touched = Zev::WorkMeter::total() - before;
  EXPECT_GE(touched, 2000U) << "group rows and configuration rows";
  EXPECT_LT(touched, 2900U) << "and no log rows";
}

// Versions are consecutive, so the log has no row further down than it has slots.
TEST_F(ResynchronisationTest, TheLogIsAskedForNoMoreVersionsThanItCanHold) {
  harness_.log().tableEntryLog()->entryLogConfig().control().scratchpadIs(1'000'000'000'000);
  harness_.restart();
  writeThatNeeds(1, 1, kThird, 0);  // nothing, that is
  writeThatNeeds(2, 22, kOther, 1);
  const std::uint64_t before = Zev::WorkMeter::total();
  start();
  EXPECT_LT(Zev::WorkMeter::total() - before,
            harness_.log().tableEntryLog()->entryLogConfig().slotCount() + 10'000U);
  EXPECT_EQ(applied(), 1'000'000'000'001U);
  EXPECT_EQ(hardware(), (Content{{1, 1}}));
}

TEST_F(ResynchronisationTest, AnAppliedVersionDoesNotFallWhenTheLogsOwnWordIsLost) {
  write(1, 1);
  write(2, 2);
  asic_->step(kPlenty);
  logScratchpad(1);
  asic_->resynchronise();
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), committed());
}

// ---- how far it goes

TEST_F(ResynchronisationTest, AStartAppliesNothingThatNeedsAVersionWhichHasNotBeenApplied) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  write(3, 33);
  start();
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 1U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(applied(kOther), 1U);
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(asic_->repairs(), 0U) << "from the log";
}

TEST_F(ResynchronisationTest, AStartTakesWhatOtherTablesHaveAnnouncedBefore) {
  announce(kOther, 1);
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  start();
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 1U);
  EXPECT_EQ(hardware(), committed());
}

// What was applied before this hardware was there has no row any more.
TEST_F(ResynchronisationTest, AStartBelievesWhatTheAgentHasOnRecordOfOtherTables) {
  announce(kOther, 5);
  announce(kThird, 1, {{kOther, Asic::LogVersion(9)}});
  reportedElsewhere(kOther, 5);
  writeThatNeeds(1, 11, kOther, 5);
  writeThatNeeds(2, 22, kOther, 6);
  start();
  EXPECT_EQ(applied(kOther), 5U);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(applied(kThird), 0U);
}

TEST_F(ResynchronisationTest, AStartBelievesWhatTheAgentHasOnRecordOfTheTableItself) {
  write(1, 11);
  write(2, 22);
  harness_.reportAll();
  writeThatNeeds(3, 33, kOther, 1);
  start();
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
}

TEST_F(ResynchronisationTest, ARepairBehindWhichAllIsBlockedLeavesWhatHasBeenApplied) {
  write(1, 11);
  write(1, 12);
  announce(kOther, 3);
  asic_->step(kPlenty);
  reportedElsewhere(kOther, 3);
  announce(kOther, 5);
  writeThatNeeds(1, 13, kOther, 6);
  asic_->step(kPlenty);
  loseLogRow(2);
  loseAnAnnouncement();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(applied(kOther), 5U) << "more than is on record";
  EXPECT_EQ(hardware(), (Content{{1, 12}})) << "the log is not asked for what has been applied";
}

TEST_F(ResynchronisationTest, WhatIsOnRecordAsAppliedBlocksNobodyAnyMore) {
  writeThatNeeds(1, 11, kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  reportedElsewhere(FecTableConstants::kTableId, 1);
  write(2, 22);
  loseAnAnnouncement();
  loseLogRow(2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U) << "one for both";
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, ARepairForgetsNothingThatWaits) {
  announce(kOther, 1, {{kThird, Asic::LogVersion(1)}});
  writeThatNeeds(1, 11, kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  loseAnAnnouncement();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 0U);
  EXPECT_EQ(held(1), nullptr);
  announce(kThird, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kThird), 1U);
  EXPECT_EQ(applied(kOther), 1U);
  EXPECT_EQ(applied(), 1U);
  EXPECT_NE(held(1), nullptr);
}

TEST_F(ResynchronisationTest, ARepairStopsInFrontOfWhatNeedsAVersionThatHasNotBeenApplied) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 2);
  write(3, 33);
  announce(kOther, 1);
  loseLogRow(1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(applied(kOther), 1U) << "another table goes on";
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, ARepairGoesPastWhatNeedsAVersionThatHasBeenApplied) {
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  writeThatNeeds(3, 33, kOther, 2);
  loseLogRow(1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
}

TEST_F(ResynchronisationTest, AVersionThatNobodyAnnouncedStopsWithTheAnnouncedOneBehindIt) {
  write(1, 11);
  configRow(2, 22, 2);  // left by an agent that died in front of the group log
  logRow(2, 22, 2);
  logScratchpad(2);
  harness_.restart();
  writeThatNeeds(3, 33, kOther, 1);
  ASSERT_EQ(version(), 3U);
  start();
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, AVersionThatNobodyAnnouncedIsTakenOnceTheBlockedOneBeforeItIs) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  write(3, 33);
  loseGroupRow(3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, AStartTakesWhatNeedsAVersionThatItTakesItself) {
  write(1, 11);
  writeThatNeeds(2, 22, FecTableConstants::kTableId, 1);
  start();
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, AStartTakesNothingThatNeedsAVersionBehindItself) {
  write(1, 11);
  writeThatNeeds(2, 22, FecTableConstants::kTableId, 2);
  start();
  EXPECT_EQ(applied(), 1U);
}

TEST_F(ResynchronisationTest, BesideAWriterElsewhereTheNewestVersionIsNotTakenBeforeItIsAnnounced) {
  write(1, 11);
  configRow(2, 22, 2);  // a writer between log and group log
  logRow(2, 22, 2);
  logScratchpad(2);
  start(Asic::Writer::elsewhere);
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(FecTableConstants::kTableId, 2, {{kOther, Asic::LogVersion(1)}});
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
  start(Asic::Writer::elsewhere);
  EXPECT_EQ(applied(), 1U) << "announced, and what it needs has to come first";
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 2U);
}

TEST_F(ResynchronisationTest, TheStartOfTheAgentItselfTakesWhatNobodyAnnounced) {
  write(1, 11);
  configRow(2, 22, 2);
  logRow(2, 22, 2);
  logScratchpad(2);
  start(Asic::Writer::elsewhere);
  ASSERT_EQ(applied(), 1U);
  EXPECT_EQ(asic_->resynchronise().added, 1U);
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
  loseAnAnnouncement();
  configRow(3, 33, 3);
  logRow(3, 33, 3);
  logScratchpad(3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U) << "and so do its repairs";
}

// ---- rows above the limit

TEST_F(ResynchronisationTest, AKeyWhoseRowIsAboveTheLimitKeepsWhatTheHardwareHolds) {
  write(1, 11);
  write(4, 44);
  asic_->step(kPlenty);
  write(2, 22);
  writeThatNeeds(1, 12, kOther, 1);
  remove(4);
  loseLogRow(3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {4, 44}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 12}, {2, 22}}));
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, AKeyWhoseRowIsAboveTheLimitGetsItsChangesUpToTheLimitFromTheLog) {
  for (const std::uint32_t fecId : {2U, 3U, 4U, 5U}) {
    write(fecId, 10 * fecId);
  }
  asic_->step(kPlenty);
  write(9, 99);  // 5, and its log row is lost
  write(1, 11);  // 6
  write(2, 21);  // 7
  remove(3);     // 8
  write(5, 51);  // 9
  write(6, 61);  // 10
  write(6, 62);  // 11, and its log row is lost
  write(7, 77);  // 12
  config().rowDel(FecHarness::key(7));
  write(2, 22);                      // 13
  writeThatNeeds(8, 88, kOther, 1);  // 14
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    write(fecId, 90 + fecId);
  }
  loseLogRow(5);
  loseLogRow(11);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 13U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {4, 40}, {5, 51}, {6, 62}, {9, 99}}))
      << "what a row has decided the log does not change, and what has no row goes";
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, ATableDeletionUpToTheLimitTakesOffKeysWhoseRowIsAboveIt) {
  write(1, 10);
  write(2, 20);
  asic_->step(kPlenty);
  write(9, 99);  // 3, and its log row is lost
  removeAll();   // 4
  write(2, 22);  // 5
  writeThatNeeds(1, 11, kOther, 1);
  loseLogRow(3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 5U);
  EXPECT_EQ(hardware(), (Content{{2, 22}})) << "1 has gone, and comes back only with what it needs";
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, ALogRowOfAUnitThatTheHardwareDoesNotHaveIsNobodys) {
  harness_.table(1);
  write(9, 99);  // 1, and its log row is lost
  harness_.table(1).entryWrite(FecHarness::key(1), FecHarness::entry("eth1", 7), nullptr);
  harness_.run();
  writeThatNeeds(1, 11, kOther, 1);
  loseLogRow(1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), (Content{{9, 99}}));
}

// ---- rows that a killed writer has left over

TEST_F(ResynchronisationTest, ARowThatWasNeverLoggedIsTakenAtAStart) {
  write(1, 11);
  configRow(2, 22, 2);
  start();
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
}

TEST_F(ResynchronisationTest, ARowThatWasNeverLoggedIsNotTakenBesideAWriterElsewhere) {
  write(1, 11);
  configRow(2, 22, 2);
  start(Asic::Writer::elsewhere);
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
}

TEST_F(ResynchronisationTest, ARowThatWasNeverLoggedIsTakenWhenWhatWasInFrontOfItHasBeenApplied) {
  write(1, 11);
  writeThatNeeds(3, 33, kOther, 1);
  configRow(2, 22, 3);
  start();
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 0U) << "nothing to do yet";
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {3, 33}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, ARowWhoseVersionWasGivenAgainIsTakenWhenThatHasBeenApplied) {
  write(1, 11);
  writeThatNeeds(3, 33, kOther, 1);
  configRow(2, 22, 3);  // left over
  write(4, 44);         // has its version
  ASSERT_EQ(version(), 3U);
  start();
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {3, 33}, {4, 44}}));
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, ARowWhoseVersionWasGivenAgainWaitsForNothingBehindThatVersion) {
  harness_.table(1);
  write(1, 11);
  writeThatNeeds(3, 33, kOther, 1);
  configRow(2, 22, 3);  // left over; another unit's write of the same key has its version
  harness_.table(1).entryWrite(FecHarness::key(2), FecHarness::entry("eth1"), nullptr);
  harness_.run();
  ASSERT_EQ(version(), 3U);
  writeThatNeeds(4, 44, kThird, 1);
  start();
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {3, 33}}));
  announce(kThird, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(asic_->repairs(), 1U);
}

TEST_F(ResynchronisationTest, RowsThatATableDeletionMarkedAreItsOwnAndNotLeftOver) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  removeAll();
  start();
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_THAT(hardware(), IsEmpty());
  EXPECT_EQ(asic_->repairs(), 0U);
}

TEST_F(ResynchronisationTest, ARowThatWaitsIsNotLeftOverBecauseItsLogRowIsLost) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  writeThatNeeds(3, 33, kOther, 2);
  loseLogRow(2);
  start();
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U) << "when its turn came";
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}}));
}

TEST_F(ResynchronisationTest, AChangeDuringARepairIsNotLeftOverBecauseItsLogRowIsLost) {
  fill(1, 50, 1);
  loseLogRow(1);
  while (held(10) == nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  writeThatNeeds(45, 2, kOther, 1);
  loseLogRow(version());
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 50U);
  EXPECT_EQ(held(45)->opaqueA, 1U);
}

TEST_F(ResynchronisationTest, AChangeDuringARepairIsNotLeftOverBecauseTheScratchpadIsDamaged) {
  fill(1, 50, 1);
  loseLogRow(1);
  while (held(10) == nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  writeThatNeeds(45, 2, kOther, 1);
  damageLogScratchpad();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 50U);
  EXPECT_EQ(held(45)->opaqueA, 1U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

// It is looked at again when the next change has been applied, which has written the scratchpad.
TEST_F(ResynchronisationTest, ALeftOverRowIsTakenOnceTheScratchpadIsWhole) {
  write(1, 11);
  asic_->step(kPlenty);
  loseAnAnnouncement();
  configRow(2, 22, 2);
  damageLogScratchpad();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  write(3, 33);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (Content{{1, 11}, {2, 22}, {3, 33}}));
  EXPECT_EQ(asic_->repairs(), 2U);
}

// Then no row above the limit can be told from one that is left over.
TEST_F(ResynchronisationTest, ALostScratchpadDoesNotKeepTheHardwareBusy) {
  write(1, 11);
  writeThatNeeds(2, 22, kOther, 1);
  logScratchpad(0);
  start();
  EXPECT_EQ(hardware(), (Content{{1, 11}}));
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 0U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

// ---- damage in the configuration rows

class DamagedRowTest : public ResynchronisationTest {
 protected:
  static constexpr std::uint32_t kEntries = 100;

  DamagedRowTest() {
    fill(1, kEntries, 7);
    asic_->step(kPlenty);
    harness_.reportAll();
    path_ = config().filePath();
  }

  std::string path_;
};

TEST_F(DamagedRowTest, AReaderThatDoesNotSeeAllRowsRemovesNothing) {
  harness_.stop();
  testing_support::damageRowOf(path_, 2);
  const Asic::Resynchronisation found = asic_->resynchronise();
  EXPECT_EQ(found.removed, 0U);
  EXPECT_EQ(found.unchanged, kEntries - 1);
  EXPECT_EQ(hardware().size(), kEntries);
}

TEST_F(DamagedRowTest, ARepairBesideAWriterThatHasNotMetTheDamageRemovesNothing) {
  testing_support::damageRowOf(path_, 2);
  loseAnAnnouncement();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(hardware().size(), kEntries);
}

TEST_F(DamagedRowTest, TheRowThatTheWriterHasRetiredIsTakenOffAndNoOther) {
  testing_support::damageRowOf(path_, 2);
  EXPECT_EQ(harness_.log().entryHas(FecHarness::key(2), kUnit0), false);
  loseAnAnnouncement();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware().size(), kEntries - 1);
  EXPECT_EQ(held(2), nullptr);
}

TEST_F(DamagedRowTest, WhatIsMarkedDeletedIsTakenOffThoughDamageHidesAnotherRow) {
  remove(5);
  loseLogRow(version());
  testing_support::damageRowOf(path_, 2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(hardware().size(), kEntries - 1);
  EXPECT_EQ(held(5), nullptr);
}

TEST_F(DamagedRowTest, TheLogStillTellsOfTheKeyWhoseRowIsHidden) {
  write(2, 8);
  loseAnAnnouncement();
  write(kEntries + 1, 9);
  loseLogRow(version());
  testing_support::damageRowOf(path_, 2);
  start();
  EXPECT_EQ(hardware().size(), kEntries + 1);
  ASSERT_NE(held(2), nullptr);
  EXPECT_EQ(held(2)->opaqueA, 8U);
}

TEST_F(DamagedRowTest, DamageInOneUnitKeepsNothingInAnother) {
  harness_.table(1);
  startWith({kUnit0, Asic::UnitId(1)});
  for (std::uint32_t fecId = 1; fecId <= 3; ++fecId) {
    harness_.table(1).entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr);
  }
  harness_.run();
  asic_->step(kPlenty);
  config(0).rowDel(FecHarness::key(1));
  config(1).rowDel(FecHarness::key(1));
  testing_support::damageRowOf(path_, 2);
  loseAnAnnouncement();
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(0).size(), kEntries);
  EXPECT_EQ(hardware(1).size(), 2U);
}

// ---- in steps, beside a writer at work

// Beyond the budget: the last operation, or the look at the versions on record.
constexpr std::uint32_t kBeyond = 2 * Asic::GroupVersionsGlint::kCapacity;

TEST_F(ResynchronisationTest, EachStepOfARepairIsBounded) {
  constexpr std::uint32_t kEntries = 3000;
  constexpr std::uint32_t kBudget = 100;
  fill(1, kEntries, 1);
  for (std::uint32_t fecId = 1; fecId < kEntries; fecId += 2) {
    config().rowDel(FecHarness::key(fecId));  // free slots in between
  }
  loseLogRow(1);
  writeThatNeeds(kEntries, 2, kOther, 1);
  std::uint32_t steps = 0;
  bool more = true;
  while (more) {
    const std::uint64_t before = Zev::WorkMeter::total();
    more = asic_->step(kBudget);
    EXPECT_LE(Zev::WorkMeter::total() - before, kBudget + kBeyond);
    ++steps;
  }
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_GE(steps, 3 * kEntries / kBudget) << "group rows, slots, and log rows";
  EXPECT_EQ(held(kEntries)->opaqueA, 1U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

// Each looks at all that the hardware holds.
TEST_F(ResynchronisationTest, TableDeletionsThatTheLogTellsOfAreAStepEach) {
  constexpr std::uint32_t kEntries = 100;
  constexpr std::uint32_t kDeletions = 20;
  for (std::uint32_t i = 0; i < kDeletions; ++i) {
    removeAll();
  }
  fill(1, kEntries, 1);
  writeThatNeeds(kEntries, 2, kOther, 1);
  loseLogRow(1);
  std::uint32_t steps = 0;
  while (asic_->step(kEntries)) {
    ++steps;
  }
  EXPECT_EQ(applied(), kDeletions + kEntries);
  EXPECT_GE(steps, kDeletions);
}

TEST_F(ResynchronisationTest, ManyFreeSlotsArePassedInSteps) {
  constexpr std::uint32_t kEntries = 3000;
  constexpr std::uint32_t kBudget = 100;
  fill(1, kEntries, 1);
  asic_->step(kPlenty);
  for (std::uint32_t fecId = 1; fecId < kEntries; ++fecId) {
    config().rowDel(FecHarness::key(fecId));
  }
  loseAnAnnouncement();
  std::uint32_t steps = 0;
  while (hardware().size() == kEntries) {
    const std::uint64_t before = Zev::WorkMeter::total();
    ASSERT_TRUE(asic_->step(kBudget));
    EXPECT_LE(Zev::WorkMeter::total() - before, kBudget + kBeyond);
    ++steps;
  }
  EXPECT_GE(steps, kEntries / kBudget) << "what is removed goes last";
  std::size_t left = hardware().size();
  while (asic_->step(kBudget)) {
    EXPECT_LE(left - hardware().size(), kBudget);
    left = hardware().size();
  }
  EXPECT_EQ(hardware(), committed());
}

// What is changed behind the walk carries a version that the walk does not promise.
TEST_F(ResynchronisationTest, WhatIsChangedMeanwhileIsTakenFromTheLogAndNotPromisedBefore) {
  fill(1, 50, 1);
  loseLogRow(1);
  ASSERT_TRUE(asic_->step(1));  // takes a row
  while (!asic_->resynchronising()) {
    ASSERT_TRUE(asic_->step(1));
  }
  while (held(10) == nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  ASSERT_EQ(held(40), nullptr);
  write(5, 2);   // the walk has passed it
  write(45, 2);  // and not yet come here
  write(51, 2);  // new
  remove(46);
  while (asic_->resynchronising()) {
    ASSERT_TRUE(asic_->step(1));
  }
  EXPECT_EQ(applied(), 50U);
  EXPECT_EQ(held(5)->opaqueA, 1U);
  EXPECT_EQ(held(45)->opaqueA, 1U) << "its change up to the limit is still in the log";
  EXPECT_EQ(held(51), nullptr);
  EXPECT_NE(held(46), nullptr);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 54U);
  EXPECT_EQ(hardware(), committed());
}

// The key had gone when the repair began, and the hardware still has it. What comes back under its
// name needs something, so until then the hardware must not have the old one.
TEST_F(ResynchronisationTest, AKeyThatComesBackDuringARepairIsTakenOffFirst) {
  fill(1, 50, 1);
  asic_->step(kPlenty);
  remove(1);
  remove(2);
  harness_.reportAll();  // another hardware has it; rows of log and configuration go
  ASSERT_EQ(config().rowCount(), 48U);
  while (!asic_->resynchronising() || held(2) == nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  for (int i = 0; i < 40; ++i) {
    ASSERT_TRUE(asic_->step(1));
    EXPECT_EQ(applied(), 50U) << "though more is on record, this hardware has not come there";
  }
  writeThatNeeds(1, 2, kOther, 1);  // takes a free slot that the walk has passed
  while (asic_->resynchronising()) {
    ASSERT_TRUE(asic_->step(1));
  }
  EXPECT_EQ(held(1), nullptr);
  EXPECT_EQ(held(2), nullptr);
  EXPECT_EQ(hardware().size(), 48U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

// A row that is met again in another slot has been decided.
TEST_F(ResynchronisationTest, AKeyThatGoesAndComesBackDuringARepairStaysAsItWasDecided) {
  fill(1, 50, 1);
  asic_->step(kPlenty);
  write(70, 7);
  loseLogRow(version());
  write(1, 5);
  remove(1);
  loseLogRow(version());
  while (held(1) != nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  ASSERT_TRUE(asic_->resynchronising());
  config().rowDel(FecHarness::key(1));
  config().rowDel(FecHarness::key(50));
  writeThatNeeds(1, 2, kOther, 1);  // takes the slot of 50
  while (asic_->resynchronising()) {
    ASSERT_TRUE(asic_->step(1));
  }
  EXPECT_EQ(held(1), nullptr);
  EXPECT_EQ(applied(), 53U);
  announce(kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, AnAnnouncementDuringARepairIsTakenBehindIt) {
  announce(kThird, 1, {{kOther, Asic::LogVersion(1)}});
  writeThatNeeds(1, 11, kOther, 1);
  write(2, 22);
  EXPECT_FALSE(asic_->step(kPlenty));
  loseAnAnnouncement();
  ASSERT_TRUE(asic_->step(1));
  ASSERT_TRUE(asic_->resynchronising());
  announce(kOther, 1);
  while (asic_->resynchronising()) {
    EXPECT_EQ(held(1), nullptr);
    ASSERT_TRUE(asic_->step(1));
  }
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 1U);
  EXPECT_EQ(applied(kThird), 1U);
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, WhatIsLoggedWhileARepairTakesAnnouncementsWaitsForWhatItNeeds) {
  fill(1, 20, 1);
  loseGroupRow(1);
  ASSERT_TRUE(asic_->step(1));
  ASSERT_TRUE(asic_->resynchronising());
  write(30, 3);
  writeThatNeeds(31, 3, kOther, 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 21U);
  EXPECT_EQ(asic_->operationsApplied(), 1U);
  EXPECT_EQ(held(31), nullptr);
}

TEST_F(ResynchronisationTest, AStartInTheMiddleOfARepairBeginsAnew) {
  fill(1, 50, 1);
  loseLogRow(1);
  while (held(10) == nullptr) {
    ASSERT_TRUE(asic_->step(1));
  }
  ASSERT_TRUE(asic_->resynchronising());
  write(5, 2);
  EXPECT_EQ(asic_->resynchronise().changed, 1U);
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(applied(), 51U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(ResynchronisationTest, ARepairIsOverThoughTheWriterNeverRests) {
  fill(1, 200, 1);
  loseLogRow(1);
  std::uint32_t mark = 1;
  std::uint32_t steps = 0;
  while (asic_->repairs() == 0 || asic_->resynchronising()) {
    ASSERT_TRUE(asic_->step(20));
    ++mark;
    for (std::uint32_t fecId = 1; fecId <= 20; ++fecId) {
      write(fecId + 20 * (mark % 10), mark);
    }
    ASSERT_LT(++steps, 200U);
  }
  EXPECT_GE(applied(), 200U);
  while (asic_->step(kPlenty)) {
  }
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(asic_->repairs(), 1U);
}

// Random changes between the steps of many repairs. Whatever the hardware holds at the end of a
// repair is what the table held at the version that it promises.
TEST_F(ResynchronisationTest, AtTheEndOfEachRepairTheHardwareIsTheTableAtTheVersionItPromises) {
  constexpr unsigned kSeed = 20261122;
  std::mt19937 numbers(kSeed);
  const auto below = [&numbers](std::uint32_t end) {
    return static_cast<std::uint32_t>(numbers() % end);
  };
  std::map<std::uint64_t, Content> at = {{0, {}}};
  Content now;
  const auto change = [&] {
    const std::uint32_t fecId = 1 + below(30);
    const std::uint32_t kind = below(20);
    if (kind == 0) {
      removeAll();
      now.clear();
    } else if (kind < 6) {
      remove(fecId);
      now.erase(fecId);
    } else {
      write(fecId, 1 + below(1'000'000));
      now[fecId] = committed()[fecId];
    }
    at[version()] = now;
  };
  for (std::uint32_t repair = 1; repair <= 60; ++repair) {
    for (std::uint32_t i = below(8); i > 0; --i) {
      change();
    }
    loseAnAnnouncement();
    while (asic_->repairs() < repair || asic_->resynchronising()) {
      asic_->step(1 + below(6));
      if (below(4) == 0) {
        change();
      }
    }
    ASSERT_EQ(hardware(), at.at(applied())) << "seed " << kSeed << ", repair " << repair;
    while (asic_->step(kPlenty)) {
    }
    ASSERT_EQ(hardware(), now);
    if (below(2) == 0) {
      harness_.report(applied());
    }
  }
}

}  // namespace
