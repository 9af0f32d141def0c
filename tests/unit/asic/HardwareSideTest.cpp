// The hardware side on the agent's loop: which turn does what.

#include <optional>

#include <gtest/gtest.h>

#include "asic/HardwareSide.h"
#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"

namespace {

using testing_support::FecHarness;

class HardwareSideTest : public testing_support::LeakCheckedTest {
 protected:
  HardwareSideTest() {
    harness_.table();
    harness_.destinationIs("eth1", 100);
    asic_.emplace(harness_.stateFolder(), std::vector<Asic::UnitId>{Asic::UnitId(0)});
    side_.emplace(harness_.loop(), harness_.group(), harness_.fec().swTableStatus(), *asic_);
  }

  void write(std::uint32_t fecId) {
    harness_.table().entryWriteWithResponseHandler(
        FecHarness::key(fecId), FecHarness::entry("eth1"), nullptr, harness_.recordResponse());
  }

  FecHarness harness_;
  std::optional<SimAsic::SimulatedAsic> asic_;
  std::optional<SimAsic::HardwareSide> side_;
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
  constexpr std::uint32_t kWrites = SimAsic::HardwareSide::kOperationsPerTurn + 1;
  for (std::uint32_t fecId = 1; fecId <= kWrites; ++fecId) {
    write(fecId);
  }
  harness_.run();
  EXPECT_EQ(harness_.responses.size(), kWrites);
  EXPECT_EQ(asic_->hardwareTable(Asic::UnitId(0))->size(), kWrites);
}

TEST_F(HardwareSideTest, OneThatHasGoneHearsNothingMore) {
  side_.reset();
  write(1);
  harness_.run();
  EXPECT_EQ(harness_.log().tableVersion().value(), 1U);
  EXPECT_TRUE(harness_.responses.empty());
}

}  // namespace
