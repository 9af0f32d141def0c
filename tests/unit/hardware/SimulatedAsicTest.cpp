// SPDX-License-Identifier: Apache-2.0

// The simulated hardware, fed by a whole agent through the state folder alone: what it applies,
// when, and how much in one step. ResynchronisationTest has what it does when the log does not tell
// enough.

#include "HardwareFixture.h"

namespace {

using hardware_test::kOther;
using hardware_test::kPlenty;
using hardware_test::kThird;
using hardware_test::kUnit0;
using LoamFec::FecTableConstants;
using ::testing::IsEmpty;
using testing_support::FecHarness;

class SimulatedAsicTest : public hardware_test::HardwareFixture {};

TEST_F(SimulatedAsicTest, AppliesWritesAndDeletesInLogOrder) {
  write(1, 11);
  write(2, 22);
  write(1, 12);
  remove(2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 4U);
  ASSERT_NE(held(1), nullptr);
  EXPECT_EQ(held(1)->opaqueA, 12U);
  EXPECT_EQ(held(1)->resolvedDest.first, 100U);
  EXPECT_EQ(held(2), nullptr);
  EXPECT_EQ(asic_->operationsApplied(), 4U);
  EXPECT_EQ(asic_->repairs(), 0U);
}

TEST_F(SimulatedAsicTest, ATableDeleteEmptiesOnlyItsUnit) {
  harness_.table(1);
  startWith({kUnit0, Asic::UnitId(1)});
  write(1);
  harness_.table(1).entryWrite(FecHarness::key(9), FecHarness::entry("eth1"), nullptr);
  harness_.table(0).entryRemoveAll(nullptr);
  harness_.run();
  asic_->step(kPlenty);
  EXPECT_EQ(testing_support::heldEntries(*asic_, kUnit0), 0U);
  EXPECT_EQ(testing_support::heldEntries(*asic_, Asic::UnitId(1)), 1U);
}

TEST_F(SimulatedAsicTest, AnOperationWaitsForTheVersionsItNeedsAndHoldsBackLaterOnes) {
  write(1);
  writeThatNeeds(2, 0, kOther, 1);
  write(3);
  asic_->step(kPlenty);
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(held(2), nullptr);
  EXPECT_EQ(held(3), nullptr);
  harness_.group()->groupLog()->addGroupLogEntry(kOther, Asic::LogVersion(1), nullptr);
  asic_->step(kPlenty);
  EXPECT_EQ(applied(kOther), 1U);
  EXPECT_EQ(applied(), 3U);
}

TEST_F(SimulatedAsicTest, AVersionThatWasNeverAnnouncedIsAppliedWithTheNextOne) {
  write(1, 1);
  auto& entryLog = harness_.log().tableEntryLog()->entryLogConfig();
  LoamFec::FecTableDataModelLogEntry entry;
  entry.key = FecHarness::key(2);
  harness_.log().tableVersion();
  // What an agent leaves that dies between its log row and its group row.
  harness_.log().tableConfigGlint(kUnit0)->swTableEntriesIs(
      {entry, {}, Asic::LogVersion(2), false});
  entryLog.rowIs({Asic::LogVersion(2), 0, kUnit0, entry});
  entry.key = FecHarness::key(3);
  entryLog.rowIs({Asic::LogVersion(3), 0, kUnit0, entry});
  harness_.group()->groupLog()->addGroupLogEntry(FecTableConstants::kTableId, Asic::LogVersion(3),
                                                 nullptr);
  asic_->step(kPlenty);
  EXPECT_EQ(applied(), 3U);
  EXPECT_NE(held(2), nullptr);
  EXPECT_NE(held(3), nullptr);
}

// ---- how much in one step

constexpr std::uint32_t kWrite = Asic::HardwareSide::kRowsOfAWrite;

TEST_F(SimulatedAsicTest, ABudgetBelowTheWorkStopsThereAndTheNextStepGoesOn) {
  for (std::uint32_t fecId = 1; fecId <= 5; ++fecId) {
    write(fecId);
  }
  EXPECT_TRUE(asic_->step(4 * kWrite));
  EXPECT_EQ(applied(), 4U);
  EXPECT_FALSE(asic_->step(4 * kWrite));
  EXPECT_EQ(applied(), 5U);
}

TEST_F(SimulatedAsicTest, ABudgetEqualToTheWorkFinishesItAndSaysItIsSpent) {
  write(1);
  write(2);
  EXPECT_TRUE(asic_->step(2 * kWrite));
  EXPECT_EQ(applied(), 2U);
  EXPECT_FALSE(asic_->step(2 * kWrite));
}

TEST_F(SimulatedAsicTest, ABudgetOfOneRowMoreThanTheWorkFinishesItAndIsNotSpent) {
  write(1);
  write(2);
  // A look at the group log that finds nothing new is no row.
  EXPECT_FALSE(asic_->step(2 * kWrite + 1));
  EXPECT_EQ(applied(), 2U);
}

TEST_F(SimulatedAsicTest, OneRowOfBudgetIsEnoughToComeForward) {
  write(1);
  write(2);
  remove(1);
  ASSERT_TRUE(asic_->step(1));
  ASSERT_TRUE(asic_->step(1));
  EXPECT_EQ(applied(), 1U) << "what has been taken is applied before more is taken";
  std::uint32_t steps = 2;
  while (asic_->step(1)) {
    ASSERT_LT(++steps, 100U);
  }
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(steps, 6U) << "each group row, and each operation";
}

// The work of a step is what it touches, and what its report will have cleaned up.
TEST_F(SimulatedAsicTest, AStepAndTheReportAfterItTouchNoMoreRowsThanItsBudget) {
  constexpr std::uint32_t kBudget = 40 * kWrite;
  for (std::uint32_t fecId = 1; fecId <= 100; ++fecId) {
    write(fecId);
  }
  for (std::uint32_t fecId = 1; fecId <= 100; fecId += 2) {
    remove(fecId);
  }
  std::uint32_t steps = 0;
  bool more = true;
  while (more) {
    const std::uint64_t before = Zev::WorkMeter::total();
    more = asic_->step(kBudget);
    // Beyond the budget: the rest of the last operation; and a report's own look at its cursor and
    // at the version on record.
    const std::uint64_t before2 = Zev::WorkMeter::total();
    harness_.group()->tableVersionApplied(
        {FecTableConstants::kTableId, asic_->appliedVersion(FecTableConstants::kTableId)});
    const std::uint64_t report = Zev::WorkMeter::total() - before2;
    if (steps > 0) {  // the first report of a process cleans up by a walk
      EXPECT_LE(before2 - before + report, kBudget + kWrite + 8);
    }
    harness_.run();
    ++steps;
  }
  EXPECT_EQ(applied(), 150U);
  EXPECT_GE(steps, 4U);
  EXPECT_EQ(hardware(), committed());
}

// What a removal counts: that of a write, and the clean-up of its configuration row.
TEST_F(SimulatedAsicTest, ARemovalCountsItsCleanUpToo) {
  constexpr std::uint32_t kRemoval = kWrite + Asic::HardwareSide::kRowsOfADeletion;
  for (std::uint32_t fecId = 1; fecId <= 4; ++fecId) {
    write(fecId);
  }
  asic_->step(kPlenty);
  for (std::uint32_t fecId = 1; fecId <= 4; ++fecId) {
    remove(fecId);
  }
  EXPECT_TRUE(asic_->step(3 * kRemoval));
  EXPECT_EQ(applied(), 7U);
}

class TableDeletionTest : public SimulatedAsicTest {
 protected:
  static constexpr std::uint32_t kEntries = 100;
  // The hardware's rows; each configuration row looked at, and removed; and what a write counts.
  static constexpr std::uint32_t kDeletion =
      kEntries + Asic::HardwareSide::kRowsOfADeletion * kEntries + kWrite;

  // Two units of as many entries, and a deletion of each that waits.
  TableDeletionTest() {
    harness_.table(1);
    startWith({kUnit0, Asic::UnitId(1)});
    for (std::uint32_t fecId = 1; fecId <= kEntries; ++fecId) {
      for (auto* table : {&harness_.table(0), &harness_.table(1)}) {
        table->entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr);
      }
    }
    harness_.run();
    asic_->step(kPlenty);
    harness_.table(0).entryRemoveAll(nullptr);
    harness_.table(1).entryRemoveAll(nullptr);
    harness_.run();
  }
};

TEST_F(TableDeletionTest, AStepThatBeginsATableDeletionOfManyRowsDoesNotBeginAnotherOne) {
  EXPECT_TRUE(asic_->step(kEntries));
  EXPECT_THAT(hardware(0), IsEmpty());
  EXPECT_EQ(hardware(1).size(), kEntries);
  EXPECT_TRUE(asic_->step(kEntries));
  EXPECT_THAT(hardware(1), IsEmpty());
  EXPECT_FALSE(asic_->step(kEntries));
}

TEST_F(TableDeletionTest, ATableDeletionCountsTheRowsThatItTouchesAndThoseOfItsCleanUp) {
  EXPECT_TRUE(asic_->step(kDeletion));
  EXPECT_EQ(hardware(1).size(), kEntries);
}

TEST_F(TableDeletionTest, OneRowMoreThanATableDeletionCountsBeginsTheNext) {
  EXPECT_TRUE(asic_->step(kDeletion + 1));
  EXPECT_EQ(hardware(1).size(), kEntries) << "its group row";
  asic_->step(1);
  EXPECT_THAT(hardware(1), IsEmpty());
}

TEST_F(SimulatedAsicTest, AnOperationOfAnotherTableCountsItsGroupRowAndItsCleanUp) {
  for (std::uint64_t version = 1; version <= 20; ++version) {
    announce(kOther, version);
  }
  EXPECT_TRUE(asic_->step(10));
  EXPECT_EQ(applied(kOther), 5U);
  EXPECT_EQ(asic_->operationsApplied(), 5U);
}

TEST_F(SimulatedAsicTest, OperationsThatWaitedTogetherAreAppliedInSteps) {
  announce(kOther, 1, {{kThird, Asic::LogVersion(1)}});
  for (std::uint64_t version = 2; version <= 20; ++version) {
    announce(kOther, version);
  }
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 0U);
  announce(kThird, 1);
  EXPECT_TRUE(asic_->step(10));
  EXPECT_EQ(applied(kThird), 1U);
  EXPECT_EQ(applied(kOther), 8U);
}

TEST_F(SimulatedAsicTest, VersionsThatWereNeverAnnouncedAreAppliedInStepsToo) {
  for (std::uint32_t version = 1; version <= 20; ++version) {
    configRow(version, version, version);
    logRow(version, version, version);
  }
  logScratchpad(20);
  announce(FecTableConstants::kTableId, 20);
  constexpr std::uint32_t kUnannounced = 1 + Asic::HardwareSide::kRowsOfACleanup;
  EXPECT_TRUE(asic_->step(1 + 5 * kUnannounced));
  EXPECT_EQ(applied(), 5U);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 20U);
}

// ---- what other tables have to do with it

TEST_F(SimulatedAsicTest, AVersionThatIsAppliedIsWaitedForByNobodyAndTheNextOneIs) {
  announce(kOther, 5);
  writeThatNeeds(1, 11, kOther, 4);
  writeThatNeeds(2, 22, kOther, 5);
  writeThatNeeds(3, 33, kOther, 6);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 5U);
  EXPECT_EQ(hardware(), (hardware_test::Content{{1, 11}, {2, 22}}));
  announce(kOther, 6);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(hardware(), (hardware_test::Content{{1, 11}, {2, 22}, {3, 33}}));
}

TEST_F(SimulatedAsicTest, EveryTableThatIsNeededMustHaveComeThatFar) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  for (std::uint32_t table = 0; table < 20; ++table) {
    needed->add({Asic::SwTableId(0x04000000 + table), Asic::LogVersion(2)});
  }
  configRow(1, 11, 1);
  logRow(1, 11, 1);
  logScratchpad(1);
  harness_.group()->groupLog()->addGroupLogEntry(FecTableConstants::kTableId, Asic::LogVersion(1),
                                                 needed);
  for (std::uint32_t table = 0; table < 20; ++table) {
    EXPECT_FALSE(asic_->step(kPlenty));
    EXPECT_EQ(held(1), nullptr);
    announce(Asic::SwTableId(0x04000000 + table), 2);
  }
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_NE(held(1), nullptr);
}

TEST_F(SimulatedAsicTest, AnotherTableWaitsForThisOneAndIsToldApplied) {
  announce(kOther, 1, {fec(2)});
  announce(kOther, 2);
  write(1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 0U) << "its first operation waits, and the second behind it";
  write(2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 2U);
  EXPECT_EQ(asic_->appliedVersions().size(), 2U);
}

TEST_F(SimulatedAsicTest, AVersionOfAnotherTableThatIsBelowTheAppliedOneLowersNothing) {
  announce(kOther, 7);
  announce(kOther, 3, {{kThird, Asic::LogVersion(9)}});
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 7U);
  announce(kOther, 8);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(kOther), 8U) << "what has been applied waits for nothing";
}

TEST_F(SimulatedAsicTest, AUnitItDoesNotHaveIsNoTable) {
  EXPECT_EQ(testing_support::heldEntries(*asic_, Asic::UnitId(7)), 0U);
}

TEST_F(SimulatedAsicTest, AStateFolderWithoutTablesIsAClearError) {
  const testing_support::TemporaryRoot empty;
  EXPECT_THROW(
      testing_support::simulatedHardware()(empty.path(), {kUnit0}, Asic::Writer::onThisThread),
      ZevGlint::MountException);
}

}  // namespace
