// The simulated hardware, fed by a whole agent through the state folder alone.

#include <optional>

#include <gtest/gtest.h>

#include "asic/SimulatedAsic.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"

namespace {

using LoamFec::FecTableConstants;
using testing_support::FakeDependency;
using testing_support::FecHarness;

constexpr std::uint32_t kPlenty = 1000;
const Asic::UnitId kUnit0(0);

class SimulatedAsicTest : public testing_support::LeakCheckedTest {
 protected:
  SimulatedAsicTest() {
    harness_.table();
    harness_.destinationIs("eth1", 100);
    asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{kUnit0});
  }

  void write(std::uint32_t fecId, std::uint32_t mark = 0,
             const Pell::Ptr<FakeDependency>& dependency = nullptr) {
    harness_.table().entryWrite(FecHarness::key(fecId), FecHarness::entry("eth1", mark),
                                dependency);
    harness_.run();
  }
  void remove(std::uint32_t fecId) {
    harness_.table().entryRemove(FecHarness::key(fecId), nullptr);
    harness_.run();
  }
  std::uint64_t applied() const {
    return asic_->appliedVersion(FecTableConstants::kTableId).value();
  }
  const LoamFec::FecTableDataModelLogEntry* held(std::uint32_t fecId) const {
    return asic_->hardwareTable(kUnit0)->find(FecHarness::key(fecId));
  }

  FecHarness harness_;
  std::optional<SimAsic::SimulatedAsic> asic_;
};

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
  asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{kUnit0, Asic::UnitId(1)});
  write(1);
  harness_.table(1).entryWrite(FecHarness::key(9), FecHarness::entry("eth1"), nullptr);
  harness_.table(0).entryRemoveAll(nullptr);
  harness_.run();
  asic_->step(kPlenty);
  EXPECT_TRUE(asic_->hardwareTable(kUnit0)->empty());
  EXPECT_EQ(asic_->hardwareTable(Asic::UnitId(1))->size(), 1U);
}

TEST_F(SimulatedAsicTest, ABudgetBelowTheWorkStopsThereAndTheNextStepGoesOn) {
  for (std::uint32_t fecId = 1; fecId <= 5; ++fecId) {
    write(fecId);
  }
  EXPECT_TRUE(asic_->step(4));
  EXPECT_EQ(applied(), 4U);
  EXPECT_FALSE(asic_->step(4));
  EXPECT_EQ(applied(), 5U);
}

TEST_F(SimulatedAsicTest, ABudgetEqualToTheWorkFinishesItAndSaysItIsSpent) {
  write(1);
  write(2);
  EXPECT_TRUE(asic_->step(2));
  EXPECT_EQ(applied(), 2U);
  EXPECT_FALSE(asic_->step(2));
}

TEST_F(SimulatedAsicTest, AnOperationWaitsForTheVersionsItNeedsAndHoldsBackLaterOnes) {
  const Asic::SwTableId other(0x03010806);
  const auto dependency =
      Zev::makeObject<FakeDependency>(Asic::TableVersion(other, Asic::LogVersion(1)));
  dependency->stateIs(Asic::EntryState::hwWritePending);
  write(1);
  write(2, 0, dependency);
  write(3);
  asic_->step(kPlenty);
  EXPECT_EQ(applied(), 1U);
  EXPECT_EQ(held(2), nullptr);
  EXPECT_EQ(held(3), nullptr);
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(1), nullptr);
  asic_->step(kPlenty);
  EXPECT_EQ(asic_->appliedVersion(other).value(), 1U);
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

TEST_F(SimulatedAsicTest, AMissingLogRowIsRepairedFromTheConfigurationTable) {
  write(1, 1);
  write(2, 2);
  harness_.log().tableEntryLog()->entryLogConfigDel(Asic::LogVersion(1));
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

TEST_F(SimulatedAsicTest, AMissingGroupRowIsRepairedFromTheConfigurationTable) {
  write(1);
  auto& groupLog =
      static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(harness_.group()->groupLog()->logMap());
  ASSERT_TRUE(groupLog.rowDel(1));
  asic_->step(kPlenty);
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(applied(), 1U);
  EXPECT_NE(held(1), nullptr);
}

TEST_F(SimulatedAsicTest, AFreshOneHoldsWhatIsCommittedAndNothingDeleted) {
  write(1, 1);
  write(2, 2);
  remove(1);
  asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{kUnit0});
  EXPECT_EQ(applied(), 3U);
  EXPECT_EQ(held(1), nullptr);
  EXPECT_NE(held(2), nullptr);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->operationsApplied(), 0U);
}

TEST_F(SimulatedAsicTest, ResynchronisationCountsWhatItRepairs) {
  write(1, 1);
  write(2, 2);
  write(3, 3);
  asic_->step(kPlenty);
  write(2, 20);
  write(4, 4);
  remove(3);
  const SimAsic::Resynchronisation found = asic_->resynchronise();
  EXPECT_EQ(found.unchanged, 1U);
  EXPECT_EQ(found.changed, 1U);
  EXPECT_EQ(found.added, 1U);
  EXPECT_EQ(found.removed, 1U);
  EXPECT_EQ(held(2)->opaqueA, 20U);
  EXPECT_EQ(applied(), 6U);
}

TEST_F(SimulatedAsicTest, AUnitItDoesNotHaveIsNoTable) {
  EXPECT_EQ(asic_->hardwareTable(Asic::UnitId(7)), nullptr);
}

TEST_F(SimulatedAsicTest, AStateFolderWithoutTablesIsAClearError) {
  const testing_support::TemporaryRoot empty;
  EXPECT_THROW(SimAsic::SimulatedAsic(empty.path(), {kUnit0}), ZevGlint::MountException);
}

}  // namespace
