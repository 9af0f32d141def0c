// SPDX-License-Identifier: Apache-2.0

// A full unit behind one interface: what a change of the interface's destination sets off, in
// turns, versions and rows.

#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Glint/Guarded.h"
#include "agent/FecAgent.h"
#include "hardware/HardwareTurns.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestHardware.h"

namespace {

using LoamFec::FecTableConstants;
using Key = LoamFec::FecTableDataModelEntryKey;

const Asic::UnitId kUnit(0);
const Wirex::IntfId kCommon = Wirex::IntfId::fromName("eth1");
const Wirex::IntfId kOther = Wirex::IntfId::fromName("eth2");
constexpr std::uint32_t kFullUnit = FecTableConstants::kConfigCapacity;
// Each batch that the hardware applies is followed by its report, by a look of the resolver at what
// waits, and by a review of the resource table.
constexpr std::uint32_t kTurnsOfABatch = 4;
// What one request takes by itself.
constexpr std::uint32_t kTurnsOfARequest = 16;
constexpr std::uint32_t kTurnsOfARedrive = kTurnsOfABatch * kFullUnit /
                                               Hardware::HardwareTurns::kRowsPerTurn *
                                               Asic::HardwareSide::kRowsOfAWrite +
                                           kTurnsOfARequest;

class LargeRedriveTest : public testing_support::LeakCheckedTest {
 protected:
  LargeRedriveTest()
      : agent_(std::make_unique<Agent::FecAgent>(root_.path(), std::vector{kUnit},
                                                 testing_support::simulatedHardware())) {
    resources().freedHandlerIs([this](Wirex::IntfId intf, const LoamAdjLib::DestId& destination) {
      freed_.emplace_back(intf.name(), destination.first);
      EXPECT_EQ(hardwareEntriesTo(destination.first), 0U) << "freed while hardware uses it";
    });
    resources().destinationIs(kOther, {9, 0, 0});
  }

  LoamAdjLib::IntfIdToDestIdResourceTableResourceTable& resources() {
    return agent_->resourceTable();
  }
  LoamFec::FecTableEntryLog& log() { return *agent_->fec().entryLog(); }
  std::uint64_t version() { return log().tableVersion().value(); }

  void fill(std::uint32_t entries) {
    resources().destinationIs(kCommon, {1, 0, 0});
    const auto table = agent_->fec().swTable(kUnit);
    LoamFec::FecTableDataModelEntry entry;
    entry.intfId = kCommon;
    for (std::uint32_t fecId = 1; fecId <= entries; ++fecId) {
      table->entryWrite(Key(fecId), entry, nullptr);
    }
    run();
    ASSERT_EQ(hardwareEntriesTo(1), entries);
  }

  // Turns until none is left. The log never holds more than its slots.
  std::uint32_t run() {
    std::uint32_t turns = 0;
    while (agent_->loop().runOne()) {
      ++turns;
      highestLogRows_ = std::max(highestLogRows_, log().entryLogConfigRows());
    }
    EXPECT_TRUE(agent_->hardwareEqualsTable(kUnit));
    return turns;
  }

  std::uint32_t hardwareEntriesTo(std::uint32_t destination) const {
    std::uint32_t count = 0;
    testing_support::forEachHeld(agent_->hardware(), kUnit, [&](const auto& entry) {
      count += entry.resolvedDest.first == destination ? 1U : 0U;
    });
    return count;
  }

  testing_support::TemporaryRoot root_;
  std::vector<std::pair<std::string, std::uint32_t>> freed_;
  std::unique_ptr<Agent::FecAgent> agent_;
  std::uint32_t highestLogRows_ = 0;
};

using Freed = std::vector<std::pair<std::string, std::uint32_t>>;

TEST_F(LargeRedriveTest, EveryEntryOfAFullUnitIsDrivenAgainOnceAndThenTheOldDestinationIsFreed) {
  fill(kFullUnit);
  const std::uint64_t before = version();
  resources().destinationIs(kCommon, {2, 0, 0});
  run();
  EXPECT_EQ(version() - before, kFullUnit);
  EXPECT_EQ(hardwareEntriesTo(2), kFullUnit);
  EXPECT_EQ(freed_, (Freed{{"eth1", 1}}));
  EXPECT_LE(highestLogRows_, kFullUnit) << "it was empty before";
  EXPECT_EQ(log().entryLogConfigRows(), 0U);
}

TEST_F(LargeRedriveTest, TheTurnsOfARedriveAreLinearInItsEntries) {
  fill(kFullUnit);
  resources().destinationIs(kCommon, {2, 0, 0});
  EXPECT_LE(run(), kTurnsOfARedrive);
}

TEST_F(LargeRedriveTest, ARequestMadeMeanwhileIsAnsweredInBoundedTurns) {
  fill(kFullUnit - 1);
  resources().destinationIs(kCommon, {2, 0, 0});
  const std::uint64_t before = version();
  while (version() == before) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  bool answered = false;
  LoamFec::FecTableDataModelEntry entry;
  entry.intfId = kOther;
  agent_->fec().swTable(kUnit)->entryWriteWithResponseHandler(
      Key(kFullUnit), entry, nullptr, [&](const auto&) { answered = true; });
  std::uint32_t turns = 0;
  while (!answered) {
    ASSERT_TRUE(agent_->loop().runOne());
    ++turns;
  }
  // Behind the re-drive in the log, and not behind anything else.
  EXPECT_LE(turns, kTurnsOfARedrive);
  run();
}

TEST_F(LargeRedriveTest, ChangesBeforeTheFirstTurnAreOneRedrive) {
  fill(kFullUnit);
  const std::uint64_t before = version();
  resources().destinationIs(kCommon, {2, 0, 0});
  resources().destinationIs(kCommon, {3, 0, 0});
  run();
  EXPECT_EQ(version() - before, kFullUnit);
  EXPECT_EQ(hardwareEntriesTo(3), kFullUnit);
}

TEST_F(LargeRedriveTest, ChangesDuringARedriveAreTakenTogetherBehindIt) {
  fill(kFullUnit);
  const std::uint64_t before = version();
  resources().destinationIs(kCommon, {2, 0, 0});
  while (version() == before) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  for (std::uint32_t destination = 3; destination <= 20; ++destination) {
    resources().destinationIs(kCommon, {destination, 0, 0});
    ASSERT_TRUE(agent_->loop().runOne());
  }
  EXPECT_EQ(version() - before, kFullUnit) << "the second waits until the first is applied";
  run();
  EXPECT_EQ(version() - before, 2 * kFullUnit);
  EXPECT_EQ(hardwareEntriesTo(20), kFullUnit);
  EXPECT_EQ(freed_.front(), (std::pair<std::string, std::uint32_t>("eth1", 1)));
}

}  // namespace
