// SPDX-License-Identifier: Apache-2.0

// The hardware side on the agent's loop: which turn does what.

#include <optional>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/WorkMeter.h"
#include "hardware/HardwareTurns.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/TestHardware.h"

namespace {

using ::testing::IsEmpty;
using testing_support::FakeDependency;
using testing_support::FecHarness;

class HardwareSideTest : public testing_support::LeakCheckedTest {
 protected:
  HardwareSideTest() {
    harness_.table();
    harness_.destinationIs("eth1", 100);
    asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{Asic::UnitId(0)},
                  std::make_unique<Hardware::SimulatedAsic>());
    side_.emplace(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(), *asic_);
  }

  void write(std::uint32_t fecId) {
    harness_.table().entryWriteWithResponseHandler(
        FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr, harness_.recordResponse());
  }

  FecHarness harness_;
  std::optional<Hardware::LogDrivenHardware> asic_;
  std::optional<Hardware::HardwareTurns> side_;
};

TEST_F(HardwareSideTest, LoggingApplyingAndAnsweringAreTurnsOfTheirOwn) {
  write(1);
  struct Progress {
    std::uint64_t logged, applied, answered;
    std::uint64_t sum() const { return logged + applied + answered; }
  };
  const auto progress = [this] {
    return Progress{harness_.log().tableVersion().value(), asic_->operationsApplied(),
                    harness_.responses.size()};
  };
  ASSERT_EQ(progress().sum(), 0U);
  std::uint64_t before = 0;
  while (harness_.loop().runOne()) {
    const Progress after = progress();
    EXPECT_LE(after.sum() - before, 1U) << "a turn did two things";
    EXPECT_GE(after.logged, after.applied);
    EXPECT_GE(after.applied, after.answered);
    before = after.sum();
  }
  EXPECT_EQ(before, 3U);
}

TEST_F(HardwareSideTest, AnIdleHardwareReportsAgainWhenTheFlagGoesUpWithoutALogRow) {
  write(1);
  harness_.run();
  harness_.responses.clear();
  harness_.table().entryRemoveWithResponseHandler(FecHarness::key(77), nullptr,
                                                  harness_.recordResponse());
  harness_.run();
  ASSERT_EQ(harness_.responses.size(), 1U);
  EXPECT_EQ(harness_.responses[0].version.value(), 0U);
  EXPECT_EQ(harness_.responses[0].state, Asic::EntryState::done);
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

TEST_F(HardwareSideTest, EveryUnitHearsEveryReport) {
  harness_.table(1);
  harness_.table(1).entryRemoveWithResponseHandler(FecHarness::key(5), nullptr,
                                                   harness_.recordResponse());
  write(1);
  harness_.run();
  EXPECT_EQ(harness_.responses.size(), 2U);
}

TEST_F(HardwareSideTest, MoreWorkThanATurnTakesIsAppliedOverSeveral) {
  constexpr std::uint32_t kWrites =
      Hardware::HardwareTurns::kRowsPerTurn / Asic::HardwareSide::kRowsOfAWrite + 1;
  for (std::uint32_t fecId = 1; fecId <= kWrites; ++fecId) {
    write(fecId);
  }
  harness_.run();
  EXPECT_EQ(harness_.responses.size(), kWrites);
  EXPECT_EQ(testing_support::heldEntries(*asic_, Asic::UnitId(0)), kWrites);
}

// ---- every write that is asked for is answered

// Unit 0's write waits for another table, so the flag is up already when unit 1 asks.
TEST_F(HardwareSideTest, ARemoveOfWhatIsNotThereIsAnsweredThoughAnotherUnitsWriteWaits) {
  const Asic::SwTableId other(0x03010806);
  const auto dependency =
      Zev::makeObject<FakeDependency>(Asic::TableVersion(other, Asic::LogVersion(1)));
  dependency->stateIs(Asic::EntryState::hwWritePending);
  harness_.table(0).entryWriteWithResponseHandler(FecHarness::key(1), FecHarness::entry(""),
                                                  dependency, harness_.recordResponse());
  harness_.table(1);
  harness_.run();
  ASSERT_TRUE(harness_.fec().swTableStatus()->pendingHwWrites());
  ASSERT_EQ(harness_.log().tableVersion().value(), 1U);
  for (std::uint32_t fecId = 7; fecId <= 9; ++fecId) {
    harness_.responses.clear();
    harness_.table(1).entryRemoveWithResponseHandler(FecHarness::key(fecId), nullptr,
                                                     harness_.recordResponse());
    // The walk that commits it, the hardware's look, the report, and the walk behind the report.
    EXPECT_LE(harness_.loop().runUntilIdle(), 4U);
    ASSERT_EQ(harness_.responses.size(), 1U);
    EXPECT_EQ(harness_.responses[0].key.fecId(), fecId);
  }
  harness_.responses.clear();
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(1), nullptr);
  harness_.run();
  ASSERT_EQ(harness_.responses.size(), 1U);
  EXPECT_EQ(harness_.responses[0].version.value(), 1U);
}

TEST_F(HardwareSideTest, ATableThatOnlyTheGroupLogKnowsIsReportedToo) {
  const Asic::SwTableId other(0x03010806);
  const Asic::SwTableId third(0x02010806);
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(3), nullptr);
  harness_.group()->groupLog()->addGroupLogEntry(third, Asic::LogVersion(4), nullptr);
  write(1);
  harness_.run();
  EXPECT_EQ(harness_.responses.size(), 1U);
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(other).value(), 3U);
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(third).value(), 4U);
  EXPECT_EQ(harness_.group()->groupLog()->logMap().rowCount(), 0U);
}

// ---- handlers that throw

TEST_F(HardwareSideTest, WhatAHandlerThrowsReachesTheLoopWhenEveryTableHasBeenTold) {
  const Asic::SwTableId other(0x03010806);  // told behind this one
  harness_.table().entryWriteWithResponseHandler(
      FecHarness::key(1), FecHarness::entry("eth1"), nullptr,
      [](const auto&) { throw std::runtime_error("the first"); });
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(3), nullptr);
  std::string thrown;
  try {
    harness_.run();
  } catch (const std::runtime_error& error) {
    thrown = error.what();
  }
  EXPECT_EQ(thrown, "the first");
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(other).value(), 3U);
  write(2);
  harness_.run();
  EXPECT_EQ(harness_.responses.size(), 1U);
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

// ---- how much in one turn

class HardwareSideTurnTest : public testing_support::LeakCheckedTest {
 protected:
  static constexpr std::uint32_t kRows = Hardware::HardwareTurns::kRowsPerTurn;
  static constexpr std::uint64_t kVersions = Hardware::HardwareTurns::kVersionsPerReport;
  // What a turn may touch beyond its budget: the rest of its last operation, or what a report looks
  // at besides the versions that are new.
  static constexpr std::uint64_t kBeyond = 2 * Asic::GroupVersionsGlint::kCapacity;

  // The hardware has applied something and has been heard of, so that no clean-up is the first.
  HardwareSideTurnTest() {
    harness_.table();
    harness_.destinationIs("eth1", 100);
    commit(1, 1);
    harness_.reportAll();
    harness_.run();
    asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{Asic::UnitId(0)},
                  std::make_unique<Hardware::SimulatedAsic>());
  }

  // Committed before there is a hardware side, in as many turns as that takes.
  void commit(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t fecId = first; fecId <= last; ++fecId) {
      harness_.table().entryWriteWithResponseHandler(FecHarness::key(fecId), FecHarness::entry(""),
                                                     nullptr, harness_.recordResponse());
    }
    harness_.run();
  }
  void startSide() {
    side_.emplace(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(), *asic_);
  }
  // Runs to the end, and says how many turns that took and how many rows the busiest touched.
  std::pair<std::uint32_t, std::uint64_t> run() {
    std::uint32_t turns = 0;
    std::uint64_t most = 0;
    std::uint64_t before = Zev::WorkMeter::total();
    while (harness_.loop().runOne()) {
      most = std::max(most, Zev::WorkMeter::total() - before);
      before = Zev::WorkMeter::total();
      ++turns;
    }
    return {turns, most};
  }
  std::uint64_t recorded() {
    return harness_.group()->groupLog()->tableVersion(LoamFec::FecTableConstants::kTableId).value();
  }

  FecHarness harness_;
  std::optional<Hardware::LogDrivenHardware> asic_;
  std::optional<Hardware::HardwareTurns> side_;
};

TEST_F(HardwareSideTurnTest, TurnsThatApplyAndReportTouchNoMoreRowsThanTheirBudget) {
  constexpr std::uint32_t kWrites = 3 * kRows / Asic::HardwareSide::kRowsOfAWrite;
  commit(2, kWrites);
  harness_.responses.clear();
  startSide();
  harness_.fec().swTableStatus()->pendingHwWritesIs(true);
  const auto [turns, most] = run();
  EXPECT_EQ(harness_.responses.size(), kWrites - 1);
  EXPECT_LE(most, kRows + kBeyond);
  EXPECT_GE(turns, 2U * 3U) << "three that apply, and a report behind each";
  EXPECT_LE(turns, 4U * 3U);
}

TEST_F(HardwareSideTurnTest, AResynchronisationBesideTheAgentIsDoneInTurnsToo) {
  constexpr std::uint32_t kEntries = 20000;
  commit(2, kEntries);
  harness_.responses.clear();
  harness_.log().tableEntryLog()->entryLogConfigDel(Asic::LogVersion(2));
  startSide();
  harness_.fec().swTableStatus()->pendingHwWritesIs(true);
  const auto [turns, most] = run();
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(harness_.responses.size(), kEntries - 1);
  EXPECT_EQ(testing_support::heldEntries(*asic_, Asic::UnitId(0)), kEntries);
  EXPECT_LE(most, kRows + kBeyond);
  EXPECT_GE(turns, kEntries / kVersions) << "it is applied at once, and reported bit by bit";
}

TEST_F(HardwareSideTurnTest, AsManyVersionsAsOneTurnReportsAreOneReport) {
  commit(2, 1 + kVersions);
  asic_->step(1'000'000);
  startSide();
  side_->resume();
  ASSERT_TRUE(harness_.loop().runOne()) << "applies";
  ASSERT_TRUE(harness_.loop().runOne()) << "reports";
  EXPECT_EQ(recorded(), 1 + kVersions);
  run();
  EXPECT_EQ(recorded(), 1 + kVersions);
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

TEST_F(HardwareSideTurnTest, OneVersionMoreThanATurnReportsIsLeftToTheNext) {
  commit(2, 2 + kVersions);
  harness_.group()->groupLog()->addGroupLogEntry(Asic::SwTableId(0x03010806), Asic::LogVersion(1),
                                                 nullptr);
  asic_->step(1'000'000);
  startSide();
  side_->resume();
  ASSERT_TRUE(harness_.loop().runOne()) << "applies";
  ASSERT_TRUE(harness_.loop().runOne()) << "reports";
  EXPECT_EQ(recorded(), 1 + kVersions);
  EXPECT_TRUE(harness_.fec().swTableStatus()->pendingHwWrites());
  run();
  EXPECT_EQ(recorded(), 2 + kVersions);
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

TEST_F(HardwareSideTurnTest, TheFirstReportOfAllGoesAllTheWay) {
  harness_.group()->groupLog()->addGroupLogEntry(Asic::SwTableId(0x03010806),
                                                 Asic::LogVersion(10 * kVersions), nullptr);
  asic_->step(1'000'000);
  startSide();
  side_->resume();
  ASSERT_TRUE(harness_.loop().runOne()) << "applies";
  ASSERT_TRUE(harness_.loop().runOne()) << "reports";
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(Asic::SwTableId(0x03010806)).value(),
            10 * kVersions);
}

TEST_F(HardwareSideTurnTest, AReportEndsAtTheFirstDeletionOfAWholeTable) {
  commit(2, 3);
  for (int i = 0; i < 2; ++i) {
    harness_.table().entryRemoveAll(nullptr);
    harness_.run();
  }
  commit(4, 4);
  ASSERT_EQ(harness_.log().tableVersion().value(), 6U);
  asic_->step(1'000'000);
  startSide();
  side_->resume();
  std::vector<std::uint64_t> reported;
  while (harness_.loop().runOne()) {
    if (reported.empty() || reported.back() != recorded()) {
      reported.push_back(recorded());
    }
  }
  EXPECT_EQ(reported, (std::vector<std::uint64_t>{1, 4, 5, 6}));
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

// Somebody has written into the group log what the agent has not announced.
TEST_F(HardwareSideTurnTest, AReportThatIsRefusedIsNotMadeForEver) {
  const Asic::SwTableId other(0x03010806);
  startSide();
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(1), nullptr);
  harness_.run();
  ASSERT_EQ(harness_.group()->groupLog()->tableVersion(other).value(), 1U);
  auto& rows =
      static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(harness_.group()->groupLog()->logMap());
  const std::uint64_t sequence = rows.control().scratchpad() + 1;
  rows.rowIs(Asic::GroupLogRow(sequence, {other, Asic::LogVersion(10 * kVersions)}));
  rows.control().scratchpadIs(sequence);
  harness_.fec().swTableStatus()->pendingHwWritesIs(true);
  EXPECT_LE(harness_.loop().runUntilIdle(), 30U);
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(other).value(), 1U);
  EXPECT_GT(harness_.group()->refusedReports(), 0U);
}

TEST_F(HardwareSideTurnTest, ALoopWithNothingToDoComesToRest) {
  startSide();
  side_->resume();
  EXPECT_LE(harness_.loop().runUntilIdle(), 3U)
      << "a look for work, a report, and the look of the resolver behind it";
  harness_.fec().swTableStatus()->pendingHwWritesIs(true);
  EXPECT_LE(harness_.loop().runUntilIdle(), 3U);
  EXPECT_FALSE(harness_.fec().swTableStatus()->pendingHwWrites());
}

// Another table's version stands announced, and a write that needs it, when the agent starts.
TEST_F(HardwareSideTest, WhatWaitsAtItsStartIsAppliedThoughNothingMoreIsLogged) {
  const Asic::SwTableId other(0x03010806);
  side_.reset();
  harness_.group()->groupLog()->addGroupLogEntry(other, Asic::LogVersion(1), nullptr);
  asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{Asic::UnitId(0)},
                std::make_unique<Hardware::SimulatedAsic>());
  side_.emplace(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(), *asic_);
  side_->resume();
  harness_.run();
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(other).value(), 1U);
}

TEST_F(HardwareSideTest, OneThatHasGoneHearsNothingMore) {
  side_.reset();
  write(1);
  harness_.run();
  EXPECT_EQ(harness_.log().tableVersion().value(), 1U);
  EXPECT_THAT(harness_.responses, IsEmpty());
}

}  // namespace
