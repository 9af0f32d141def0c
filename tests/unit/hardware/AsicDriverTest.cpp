// SPDX-License-Identifier: Apache-2.0

// What a driver of a real ASIC is asked for: batches in log order, and again what it has not taken.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HardwareFixture.h"
#include "hardware/HardwareTurns.h"
#include "testing/TraceRecorder.h"

namespace {

using Hardware::AsicDriver;
using hardware_test::kPlenty;
using hardware_test::kUnit0;
using LoamFec::FecTableConstants;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Keeps what it is told, in memory, and takes no more changes than it is allowed.
class StubbornAsic : public Hardware::SimulatedAsic {
 public:
  std::size_t apply(std::span<const Change> changes) override {
    batches.push_back(changes.size());
    const std::size_t taken = std::min<std::size_t>(changes.size(), allowed);
    allowed -= taken;
    const std::size_t done = SimulatedAsic::apply(changes.first(taken));
    for (const Change& change : changes.first(done)) {
      told.push_back(text(change));
    }
    refused = done < changes.size();
    return done;
  }
  Pell::String fault() const override { return refused ? "the bus is stuck" : ""; }

  std::size_t allowed = SIZE_MAX;
  bool refused = false;
  std::vector<std::size_t> batches;
  std::vector<std::string> told;

 private:
  static std::string text(const Change& change) {
    switch (change.kind) {
      case Change::Kind::write:
        return fmt::format("write {}", change.key);
      case Change::Kind::remove:
        return fmt::format("remove {}", change.key);
      case Change::Kind::removeAll:
        break;
    }
    return "remove all";
  }
};

class AsicDriverTest : public hardware_test::HardwareFixture {
 protected:
  AsicDriverTest() { restart(); }

  void restart() {
    auto driver = std::make_unique<StubbornAsic>();
    driver_ = driver.get();
    asic_.reset();
    asic_.emplace(harness_.stateFolder(), std::vector{kUnit0}, std::move(driver));
  }
  void write(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t fecId = first; fecId <= last; ++fecId) {
      HardwareFixture::write(fecId, fecId);
    }
  }

  StubbornAsic* driver_ = nullptr;
};

TEST_F(AsicDriverTest, WhatWaitsTogetherIsOneBatchInLogOrder) {
  write(1, 3);
  remove(2);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->told, ElementsAre("write 1", "write 2", "write 3", "remove 2"));
  EXPECT_THAT(driver_->batches, ElementsAre(4U));
  EXPECT_EQ(applied(), 4U);
  EXPECT_EQ(asic_->fault(), "");
}

TEST_F(AsicDriverTest, ABatchHoldsSoManyChangesAndTheNextOneTheRest) {
  constexpr std::uint32_t kBatch = 256;
  write(1, kBatch + 1);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->batches, ElementsAre(kBatch, 1U));
  EXPECT_EQ(applied(), kBatch + 1);
}

// The cost of the deletion is what the hardware holds by then.
TEST_F(AsicDriverTest, TheDeletionOfATableBeginsABatchOfItsOwn) {
  write(1, 2);
  removeAll();
  write(3, 3);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->told, ElementsAre("write 1", "write 2", "remove all", "write 3"));
  EXPECT_THAT(driver_->batches, ElementsAre(2U, 2U));
  EXPECT_EQ(hardware(), committed());
}

TEST_F(AsicDriverTest, WhatIsNotTakenIsNotAppliedAndComesAgainFirst) {
  write(1, 4);
  driver_->allowed = 2;
  EXPECT_FALSE(asic_->step(kPlenty)) << "it does not ask for another turn at once";
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(asic_->operationsApplied(), 2U);
  EXPECT_EQ(asic_->fault(), "the bus is stuck");
  write(5, 5);
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 2U);
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->told, ElementsAre("write 1", "write 2", "write 3", "write 4", "write 5"));
  EXPECT_EQ(applied(), 5U);
  EXPECT_EQ(asic_->fault(), "");
  EXPECT_EQ(asic_->repairs(), 0U);
}

TEST_F(AsicDriverTest, NothingIsTakenAndNothingIsApplied) {
  write(1, 2);
  driver_->allowed = 0;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 0U);
  EXPECT_THAT(driver_->told, IsEmpty());
}

// The batch in the middle of a step is refused: what has been given behind it is not applied.
TEST_F(AsicDriverTest, ARefusalInTheMiddleOfAStepEndsIt) {
  write(1, 300);
  driver_->allowed = 100;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 100U);
  EXPECT_THAT(driver_->batches, ElementsAre(256U));
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 300U);
  EXPECT_EQ(hardware(), committed());
}

// Another table needs what the hardware has not taken.
TEST_F(AsicDriverTest, WhatNeedsARefusedVersionWaits) {
  write(1, 2);
  announce(hardware_test::kOther, 1, {fec(2)});
  driver_->allowed = 1;
  asic_->step(kPlenty);
  EXPECT_EQ(applied(hardware_test::kOther), 0U);
  driver_->allowed = 1;
  asic_->step(kPlenty);
  EXPECT_EQ(applied(hardware_test::kOther), 1U);
}

TEST_F(AsicDriverTest, ARefusalIsTracedWithItsReason) {
  testing_support::TraceRecorder recorder{{"FecAsic"}};
  write(1, 2);
  driver_->allowed = 1;
  asic_->step(kPlenty);
  EXPECT_THAT(recorder.lines(),
              ElementsAre("1 FecAsic::flush version: 2 is not taken: the bus is stuck"));
}

// A comparison that the hardware ends goes on where it stopped, by the steps that follow.
TEST_F(AsicDriverTest, AComparisonAtAStartThatIsNotTakenWholeGoesOnBySteps) {
  write(1, 10);
  asic_->step(kPlenty);
  auto driver = std::make_unique<StubbornAsic>();
  driver_ = driver.get();
  driver_->allowed = 3;
  asic_.reset();
  asic_.emplace(harness_.stateFolder(), std::vector{kUnit0}, std::move(driver));
  EXPECT_EQ(applied(), 0U) << "until it is done, nothing is said to be applied";
  EXPECT_TRUE(asic_->resynchronising());
  EXPECT_EQ(asic_->fault(), "the bus is stuck");
  driver_->allowed = 3;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_TRUE(asic_->resynchronising());
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_THAT(driver_->told, SizeIs(10U));
  EXPECT_EQ(applied(), 10U);
  EXPECT_EQ(hardware(), committed());
}

// What no row speaks for is taken off, with refusals in between.
TEST_F(AsicDriverTest, WhatNobodyHasCommittedIsTakenOffThoughTheAsicRefusesAtFirst) {
  write(1, 100);
  asic_->step(kPlenty);
  driver_->allowed = 0;
  for (std::uint32_t fecId = 11; fecId <= 100; ++fecId) {
    config().rowDel(hardware_test::FecHarness::key(fecId));
  }
  asic_->resynchronise();
  EXPECT_TRUE(asic_->resynchronising());
  EXPECT_EQ(testing_support::heldEntries(*asic_, kUnit0), 100U);
  for (std::uint32_t turn = 1; turn <= 8; ++turn) {
    driver_->allowed = 10;
    driver_->batches.clear();
    asic_->step(kPlenty);
    EXPECT_EQ(testing_support::heldEntries(*asic_, kUnit0), 100 - 10 * turn);
    EXPECT_TRUE(asic_->resynchronising());
    EXPECT_EQ(asic_->fault(), "the bus is stuck");
  }
  driver_->allowed = SIZE_MAX;
  asic_->step(kPlenty);
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(testing_support::heldEntries(*asic_, kUnit0), 10U);
  EXPECT_EQ(hardware(), committed());
}

TEST_F(AsicDriverTest, ARefusalWithinAComparisonEndsTheStep) {
  write(1, 3);
  asic_->step(kPlenty);
  driver_->allowed = 0;
  driver_->batches.clear();
  config().rowDel(hardware_test::FecHarness::key(2));
  asic_->resynchronise();
  EXPECT_THAT(driver_->batches, ElementsAre(1U));
  asic_->step(kPlenty);
  EXPECT_THAT(driver_->batches, ElementsAre(1U, 1U));
}

// Two other tables need what is refused.
TEST_F(AsicDriverTest, ARefusalEndsTheStepWhoeverElseWaits) {
  announce(hardware_test::kOther, 1, {fec(2)});
  announce(hardware_test::kThird, 1, {fec(2)});
  write(1, 2);
  driver_->allowed = 1;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->told, ElementsAre("write 1"));
  EXPECT_THAT(driver_->batches, SizeIs(::testing::Le(2U)));
  EXPECT_EQ(asic_->fault(), "the bus is stuck");
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->fault(), "");
  EXPECT_EQ(applied(hardware_test::kOther), 1U);
  EXPECT_EQ(applied(hardware_test::kThird), 1U);
}

TEST_F(AsicDriverTest, ATableThatWaitsForSomethingElseDoesNotCutBatchesShort) {
  announce(hardware_test::kOther, 1, {{hardware_test::kThird, Asic::LogVersion(1)}});
  write(1, 3);
  asic_->step(kPlenty);
  EXPECT_THAT(driver_->batches, ElementsAre(3U));
}

TEST_F(AsicDriverTest, ARefusedDeletionOfATableComesAgain) {
  write(1, 2);
  removeAll();
  driver_->allowed = 2;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 2U);
  EXPECT_EQ(hardware().size(), 2U);
  driver_->allowed = 1;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 3U);
  EXPECT_THAT(hardware(), IsEmpty());
}

// The comparison that a missing row asks for does what the refused batch would have done.
TEST_F(AsicDriverTest, ARowThatIsMissingBehindARefusalIsMadeGood) {
  write(1, 4);
  loseLogRow(3);
  driver_->allowed = 1;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_LE(applied(), 1U);
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(applied(), 4U);
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(hardware(), committed());
}

// The refusal comes first, so the comparison is left to the next step.
TEST_F(AsicDriverTest, AGapThatIsMetBehindARefusalAsksTheAsicForNothingMoreInTheStep) {
  write(1, 2);
  removeAll();
  write(3, 3);
  loseGroupRow(4);
  driver_->allowed = 0;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_THAT(driver_->batches, ElementsAre(2U));
  EXPECT_EQ(asic_->fault(), "the bus is stuck");
  driver_->allowed = SIZE_MAX;
  EXPECT_FALSE(asic_->step(kPlenty));
  EXPECT_EQ(asic_->repairs(), 1U);
  EXPECT_EQ(hardware(), committed());
}

// What a refused comparison has left over is not carried out by the next one.
TEST_F(AsicDriverTest, ANewComparisonForgetsWhatARefusedOneHadLeft) {
  write(1, 2);
  driver_->allowed = 0;
  asic_->resynchronise();
  remove(1);
  harness_.run();
  driver_->allowed = SIZE_MAX;
  asic_->resynchronise();
  asic_->step(kPlenty);
  EXPECT_THAT(driver_->told, ElementsAre("write 2"));
  EXPECT_EQ(hardware(), committed());
}

// The hardware is full of what is to go: that goes first.
class FullAsicTest : public hardware_test::HardwareFixture {
 protected:
  FullAsicTest() {
    asic_.reset();
    asic_.emplace(harness_.stateFolder(), std::vector{kUnit0},
                  std::make_unique<Hardware::SimulatedAsic>(2));
    write(1);
    write(2);
    asic_->step(kPlenty);
  }
};

TEST_F(FullAsicTest, AComparisonTakesOffWhatNobodyHasCommittedBeforeItAdds) {
  config().rowDel(hardware_test::FecHarness::key(1));
  configRow(3, 7, 2);
  asic_->resynchronise();
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(asic_->fault(), "");
  EXPECT_EQ(hardware(), committed());
  EXPECT_TRUE(hardware().contains(3));
}

TEST_F(FullAsicTest, AComparisonTakesOffWhatWasDeletedBeforeItAddsWhereverTheRowsAre) {
  config().rowDel(hardware_test::FecHarness::key(1));
  configRow(3, 7, 2);  // in the slot of key 1, before that of key 2
  configRow(2, 0, 2, true);
  configRow(4, 8, 2);
  asic_->resynchronise();
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(hardware(), committed());
  EXPECT_EQ(hardware().size(), 2U);
}

TEST_F(FullAsicTest, OneEntryTooManyIsRefusedAndAllOthersAreThere) {
  configRow(3, 7, 2);
  asic_->resynchronise();
  EXPECT_TRUE(asic_->resynchronising());
  EXPECT_EQ(asic_->fault(), "unit 0: its table is full: 2 of 2 entries");
  EXPECT_EQ(hardware().size(), 2U);
  config().rowDel(hardware_test::FecHarness::key(3));
  asic_->resynchronise();
  EXPECT_FALSE(asic_->resynchronising());
  EXPECT_EQ(hardware(), committed());
}

// A driver that takes as much as it likes, a hundred times: what is said to be applied only rises,
// and is what the hardware holds.
TEST_F(AsicDriverTest, WhateverIsRefusedInTheEndTheHardwareIsTheTable) {
  for (std::uint32_t seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](std::uint32_t bound) {
      return static_cast<std::uint32_t>(random() % bound);
    };
    std::uint64_t lastApplied = applied();
    for (int round = 0; round < 12; ++round) {
      switch (below(8)) {
        case 0:
          removeAll();
          break;
        case 1:
          asic_->resynchronise();
          break;
        case 2:
        case 3:
          remove(below(20));
          break;
        default:
          HardwareFixture::write(below(20), below(1000));
          HardwareFixture::write(below(20), below(1000));
          break;
      }
      driver_->allowed = below(4);
      asic_->step(1 + below(30));
      EXPECT_GE(applied(), lastApplied);
      lastApplied = applied();
    }
    driver_->allowed = SIZE_MAX;
    while (asic_->step(kPlenty)) {
    }
    ASSERT_EQ(asic_->fault(), "");
    ASSERT_EQ(hardware(), committed());
    ASSERT_EQ(applied(), harness_.log().tableVersion().value());
  }
}

// On the agent's loop: the loop comes to rest, and who knows better asks again.
TEST_F(AsicDriverTest, ALoopComesToRestAtARefusalAndIsResumed) {
  Hardware::HardwareTurns turns(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(),
                                *asic_);
  driver_->allowed = 1;
  write(1, 3);
  harness_.run();
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(FecTableConstants::kTableId).value(), 1U);
  driver_->allowed = SIZE_MAX;
  turns.resume();
  harness_.run();
  EXPECT_EQ(harness_.group()->groupLog()->tableVersion(FecTableConstants::kTableId).value(), 3U);
}

// The simulated ASIC itself.

class SimulatedTableTest : public ::testing::Test {
 protected:
  using Change = AsicDriver::Change;
  using Kind = Change::Kind;
  static constexpr Asic::SwTableId kTable{7};

  static Change change(Kind kind, std::uint64_t key, std::span<const std::byte> entry = {}) {
    return {.kind = kind, .tableId = kTable, .unitId = kUnit0, .key = key, .entry = entry};
  }
  std::size_t write(Hardware::SimulatedAsic& asic, std::uint64_t key) const {
    const Change one = change(Kind::write, key, bytes_);
    return asic.apply(std::span(&one, 1));
  }

  const std::array<std::byte, 3> bytes_ = {std::byte{1}, std::byte{2}, std::byte{3}};
};

TEST_F(SimulatedTableTest, AFullTableTakesNoNewKeyAndSaysSo) {
  Hardware::SimulatedAsic asic(2);
  EXPECT_EQ(asic.capacity(kTable), 2U);
  EXPECT_EQ(write(asic, 1), 1U);
  EXPECT_EQ(write(asic, 2), 1U);
  EXPECT_EQ(asic.fault(), "");
  EXPECT_EQ(write(asic, 3), 0U);
  EXPECT_EQ(asic.fault(), "unit 0: its table is full: 2 of 2 entries");
  EXPECT_EQ(write(asic, 2), 1U) << "a key that is there";
  EXPECT_EQ(asic.fault(), "");
  EXPECT_EQ(asic.entries(kTable, kUnit0), 2U);
}

TEST_F(SimulatedTableTest, ChangesBehindTheRefusedOneAreNotDone) {
  Hardware::SimulatedAsic asic(1);
  const std::vector<Change> changes = {change(Kind::write, 1, bytes_),
                                       change(Kind::write, 2, bytes_), change(Kind::remove, 1)};
  EXPECT_EQ(asic.apply(changes), 1U);
  EXPECT_EQ(asic.entries(kTable, kUnit0), 1U);
}

TEST_F(SimulatedTableTest, EntriesReadBackAsTheyWereWritten) {
  Hardware::SimulatedAsic asic;
  write(asic, 5);
  std::array<std::byte, 3> read{};
  EXPECT_TRUE(asic.read(kTable, kUnit0, 5, read));
  EXPECT_EQ(read, bytes_);
  EXPECT_FALSE(asic.read(kTable, kUnit0, 6, read));
  EXPECT_FALSE(asic.read(kTable, Asic::UnitId(1), 5, read)) << "another unit";
  EXPECT_FALSE(asic.read(Asic::SwTableId(8), kUnit0, 5, read)) << "another table";
}

TEST_F(SimulatedTableTest, AWalkMeetsEachKeyThatStaysOnceWhateverGoesMeanwhile) {
  Hardware::SimulatedAsic asic;
  for (std::uint64_t key = 1; key <= 10; ++key) {
    write(asic, key);
  }
  std::vector<std::uint64_t> met;
  std::array<std::uint64_t, 3> keys{};
  AsicDriver::Cursor at = 0;
  while (const std::size_t count = asic.keys(kTable, kUnit0, at, keys)) {
    met.insert(met.end(), keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(count));
    const Change gone = change(Kind::remove, keys[0]);
    ASSERT_EQ(asic.apply(std::span(&gone, 1)), 1U);
  }
  EXPECT_THAT(met, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  EXPECT_EQ(asic.entries(kTable, kUnit0), 6U);
}

}  // namespace
