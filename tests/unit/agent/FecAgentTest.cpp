// SPDX-License-Identifier: Apache-2.0

// The agent's start: on what another one left, with its hardware, or with empty tables; and on a
// damaged state, repaired or not, with hardware that still has what was lost.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Glint/Guarded.h"
#include "agent/FecAgent.h"
#include "agent/FecClient.h"
#include "testing/LeakCheck.h"
#include "testing/StateFiles.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestHardware.h"
#include "testing/TraceRecorder.h"
#include "tools/StateCheck.h"
#include "tools/StateRepair.h"
#include "tools/TableRole.h"

namespace {

using Agent::AgentStart;
using Agent::FecAgent;
using Agent::FecClient;
using testing_support::heldEntries;
using testing_support::heldEntry;
using testing_support::simulatedHardware;

const std::vector<Asic::UnitId> kUnits = {Asic::UnitId(0), Asic::UnitId(3)};

class FecAgentTest : public testing_support::LeakCheckedTest {
 protected:
  FecAgentTest() { start(); }

  void start(AgentStart how = {}) {
    agent_ = std::make_unique<FecAgent>(root_.path(), kUnits, simulatedHardware(), std::move(how));
    agent_->loop().runUntilIdle();
  }
  void stop() { agent_ = nullptr; }
  // Does the damage at the start's first trace of that handle with that message.
  void startWhileDamaging(const char* handle, const std::string& message,
                          const std::function<void()>& damage) {
    const testing_support::TraceRecorder levels({handle});
    bool isDone = false;
    Zev::traceSinkIs([&](const Zev::TraceRecord& record) {
      if (!isDone && record.message.starts_with(message)) {
        isDone = true;
        damage();
      }
    });
    start();
    EXPECT_TRUE(isDone);
  }

  // A write of each key to each unit, up to the answer.
  void write(const std::vector<std::uint32_t>& fecIds, std::uint32_t mark) {
    agent_->resourceTable().destinationIs(Wirex::IntfId::fromName("eth1"), {7, 0, 0});
    for (const Asic::UnitId unit : kUnits) {
      FecClient client(agent_->loop(), agent_->fec().swTable(unit));
      for (const std::uint32_t fecId : fecIds) {
        FecClient::Entry entry;
        entry.intfId = Wirex::IntfId::fromName("eth1");
        entry.opaqueA = mark;
        ASSERT_TRUE(client.write(FecClient::Key(fecId), entry, [](auto&&...) {}));
      }
      agent_->loop().runUntilIdle();
      ASSERT_EQ(client.unanswered(), 0U);
    }
  }
  std::uint32_t entries(Asic::UnitId unit) const { return agent_->fec().entryLog()->entrys(unit); }
  bool hardwareEqual() const {
    return agent_->hardwareEqualsTable(kUnits[0]) && agent_->hardwareEqualsTable(kUnits[1]);
  }
  // A simulated ASIC beside the agent's, which sees what is logged and outlives the agent.
  std::unique_ptr<Asic::HardwareSide> hardware() const {
    return simulatedHardware()(root_.path(), kUnits, Asic::Writer::onThisThread);
  }

  std::string fileOf(Tools::TableRole role, Asic::UnitId unit = kUnits[0]) const {
    return root_.path() + "/" + Tools::fileNameOf(role, unit);
  }
  // In the configuration of the first unit.
  void damageRowOf(std::uint32_t fecId) const {
    testing_support::damageRowOf(fileOf(Tools::TableRole::config), fecId);
  }
  void repair() const {
    const Tools::RepairReport report = Tools::carryOutRepair(root_.path());
    ASSERT_EQ(report.outcome, Tools::RepairReport::Outcome::done) << Tools::repairText(report, 0);
  }
  void expectStateIsClean() const {
    const Tools::StateReport found = Tools::checkState(root_.path());
    EXPECT_TRUE(found.clean()) << Tools::reportText(found, 0);
  }

  // After a start: the key of the first unit has gone everywhere, nothing waits in the log, and
  // its client may write it again.
  void expectLostEverywhereAndWritable(std::uint32_t fecId, std::size_t left) {
    const FecClient::Key key(fecId);
    const auto& log = *agent_->fec().entryLog();
    EXPECT_TRUE(hardwareEqual());
    EXPECT_FALSE(heldEntry(agent_->hardware(), kUnits[0], fecId));
    EXPECT_EQ(heldEntries(agent_->hardware(), kUnits[0]), left);
    EXPECT_EQ(entries(kUnits[0]), left);
    EXPECT_FALSE(log.entryHas(key, kUnits[0]));
    EXPECT_EQ(log.entryLogConfigRows(), 0U);
    write({fecId}, 77);
    EXPECT_TRUE(hardwareEqual());
    const auto held = heldEntry(agent_->hardware(), kUnits[0], fecId);
    ASSERT_TRUE(held);
    EXPECT_EQ(held->opaqueA, 77U);
    stop();
    expectStateIsClean();
  }

  testing_support::TemporaryRoot root_;
  std::unique_ptr<FecAgent> agent_;
};

TEST_F(FecAgentTest, AStartOnExistingStateRestoresEveryUnit) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  stop();
  start();
  EXPECT_EQ(entries(kUnits[0]), 3U);
  EXPECT_EQ(entries(kUnits[1]), 3U);
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion(), version);
  EXPECT_TRUE(hardwareEqual());
}

TEST_F(FecAgentTest, AStartWithResetBeginsWithEmptyTablesUnderNewVersions) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  auto kept = hardware();
  stop();
  start({.reset = true, .hardware = std::move(kept)});
  EXPECT_EQ(entries(kUnits[0]) + entries(kUnits[1]), 0U);
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion().value(), version.value() + 2)
      << "a deletion a unit";
  EXPECT_TRUE(hardwareEqual());
  EXPECT_EQ(heldEntries(agent_->hardware(), kUnits[0]), 0U);
  for (const Asic::UnitId unit : kUnits) {
    auto& rows = agent_->fec().entryLog()->tableConfigGlint(unit)->swTableEntries();
    EXPECT_EQ(rows.rowCount(), 0U) << "the deletions are applied and cleaned up";
  }
}

TEST_F(FecAgentTest, HardwareThatWasKeptIsBroughtInLineWithTheTables) {
  write({1, 2, 3}, 10);
  auto kept = hardware();  // has 1, 2 and 3, and hears nothing of what follows
  write({2, 4}, 20);
  agent_->fec().swTable(kUnits[1])->entryRemove(FecClient::Key(3), nullptr);
  agent_->loop().runUntilIdle();
  stop();
  start({.reset = false, .hardware = std::move(kept)});
  const Asic::Resynchronisation& difference = agent_->resynchronisation();
  EXPECT_EQ(difference.unchanged, 3U) << "1 in both units, 3 in one";
  EXPECT_EQ(difference.changed, 2U) << "2 in both units";
  EXPECT_EQ(difference.added, 2U) << "4 in both units";
  EXPECT_EQ(difference.removed, 1U);
  EXPECT_TRUE(hardwareEqual());
}

TEST_F(FecAgentTest, HardwareThatWasKeptHearsWhatIsLoggedAfterwards) {
  write({1}, 10);
  auto kept = hardware();
  stop();
  start({.reset = false, .hardware = std::move(kept)});
  write({1, 2}, 20);
  EXPECT_TRUE(hardwareEqual());
  EXPECT_EQ(heldEntries(agent_->hardware(), kUnits[0]), 2U);
  EXPECT_EQ(dynamic_cast<const Hardware::LogDrivenHardware&>(agent_->hardware()).repairs(), 0U)
      << "from the log alone";
}

TEST_F(FecAgentTest, ARowThatARepairDropsIsTakenOffHardwareThatWasKept) {
  write({1, 2, 3}, 10);
  auto kept = hardware();
  stop();
  damageRowOf(2);
  repair();
  expectStateIsClean();
  start({.reset = false, .hardware = std::move(kept)});
  EXPECT_EQ(agent_->resynchronisation().removed, 1U);
  EXPECT_EQ(agent_->resynchronisation().unchanged, 5U);
  expectLostEverywhereAndWritable(2, 2);
}

TEST_F(FecAgentTest, ARowThatAStartRetiresIsTakenOffHardwareThatWasKept) {
  write({1, 2, 3}, 10);
  auto kept = hardware();
  stop();
  damageRowOf(2);
  start({.reset = false, .hardware = std::move(kept)});
  EXPECT_EQ(agent_->resynchronisation().removed, 1U);
  EXPECT_EQ(agent_->resynchronisation().unchanged, 5U);
  expectLostEverywhereAndWritable(2, 2);
}

// The log tells of the row, and the hardware has not heard of it: neither the old entry nor the
// new one may stay.
TEST_F(FecAgentTest, ARowThatARepairDropsWithItsLogRowIsTakenOffHardwareThatWasKept) {
  write({1, 2, 3}, 10);
  auto kept = hardware();
  const auto version = agent_->fec().entryLog()->tableVersion();
  FecClient::Entry entry;
  entry.intfId = Wirex::IntfId::fromName("eth1");
  entry.opaqueA = 20;
  entry.key = FecClient::Key(2);
  agent_->fec().swTable(kUnits[0])->entryWrite(entry.key, entry, nullptr);
  while (agent_->fec().entryLog()->tableVersion() == version) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  ASSERT_EQ(agent_->fec().entryLog()->entryLogConfigRows(), 1U);
  stop();
  damageRowOf(2);
  repair();
  expectStateIsClean();
  start({.reset = false, .hardware = std::move(kept)});
  EXPECT_EQ(agent_->resynchronisation().removed, 1U);
  EXPECT_GT(agent_->fec().entryLog()->tableVersion(), version) << "no version is given twice";
  expectLostEverywhereAndWritable(2, 2);
}

// What is damaged is what the hardware has not heard of yet, so that the rest is equal.
TEST_F(FecAgentTest, HardwareIsNotSaidToEqualATableWhoseRowsWereNotAllSeen) {
  write({1, 2}, 10);
  const auto& log = *agent_->fec().entryLog();
  const auto version = log.tableVersion();
  FecClient::Entry entry;
  entry.key = FecClient::Key(3);
  agent_->fec().swTable(kUnits[0])->entryWrite(entry.key, entry, nullptr);
  while (log.tableVersion() == version) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  ASSERT_EQ(heldEntries(agent_->hardware(), kUnits[0]), 2U);
  ASSERT_EQ(entries(kUnits[0]), 3U);
  damageRowOf(3);
  EXPECT_FALSE(agent_->hardwareEqualsTable(kUnits[0]));
  EXPECT_TRUE(agent_->hardwareEqualsTable(kUnits[0])) << "the row is out of use from then on";
}

// Two deletions of the first unit that nobody speaks for, beside an entry.
class OrphanTest : public FecAgentTest {
 protected:
  OrphanTest() {
    write({1, 2, 3}, 10);
    auto& unit = *agent_->fec().entryLog()->tableConfigGlint(kUnits[0]);
    for (const std::uint32_t fecId : {1U, 2U}) {
      const auto row = unit.swTableEntries().row(FecClient::Key(fecId)).value();
      unit.swTableEntriesIs({row.logEntry(), row.rsrcKeys(), row.version(), true});
    }
    stop();
  }
  std::uint32_t rows() const {
    return agent_->fec().entryLog()->tableConfigGlint(kUnits[0])->swTableEntries().rowCount();
  }
};

TEST_F(OrphanTest, DeletionsThatNobodySpeaksForAreSweptAtTheStart) {
  start();
  EXPECT_EQ(rows(), 1U);
}

// Takes nothing.
class ShutAsic : public Hardware::SimulatedAsic {
 public:
  std::size_t apply(std::span<const Change>) override { return 0; }
  Pell::String fault() const override { return "shut"; }
};

TEST_F(OrphanTest, TheyAreSweptThoughFreshHardwareTakesNothingYet) {
  agent_ = std::make_unique<FecAgent>(
      root_.path(), kUnits, Hardware::drivenByTheLog([] { return std::make_unique<ShutAsic>(); }));
  EXPECT_EQ(agent_->hardware().fault(), "shut");
  EXPECT_EQ(agent_->hardware().appliedVersion(LoamFec::FecTableConstants::kTableId).value(), 0U);
  EXPECT_EQ(rows(), 1U);
  EXPECT_FALSE(hardwareEqual());
  agent_->loop().runUntilIdle();
}

// The damage is done when the first of the two has gone.
TEST_F(OrphanTest, OneIsKeptWhileDamageHidesWhetherItsLogRowIsThere) {
  const std::string file = Tools::fileNameOf(Tools::TableRole::config, kUnits[0]);
  startWhileDamaging("GlintMap", file + ": row 1 removed", [&] {
    const std::string log = fileOf(Tools::TableRole::log);
    const testing_support::TablePlaces places(log);
    for (std::uint32_t bucket = 0; bucket < 16; ++bucket) {  // of every version given so far
      testing_support::flipBit(log, 8 * places.head(bucket));
    }
  });
  EXPECT_EQ(rows(), 2U);
  stop();
  start();
  EXPECT_EQ(rows(), 1U);
}

TEST_F(OrphanTest, OneIsSweptThoughDamageHidesWhatWasRecordedAsApplied) {
  startWhileDamaging("FecTableInterface", " Restoring entries", [&] {
    const std::string applied = fileOf(Tools::TableRole::applied);
    const testing_support::TablePlaces places(applied);
    for (const std::uint32_t slot : places.liveSlots()) {
      testing_support::flipBit(applied, 8 * (places.liveRow(slot) + 8));
    }
  });
  EXPECT_EQ(rows(), 1U) << "the hardware says itself what it has taken";
}

// The agent dies in a clean-up, between the log row of a deletion and the row that it marked.
TEST_F(FecAgentTest, ADeletionWhoseCleanUpWasCutShortIsSweptAtTheFirstStart) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  agent_->fec().swTable(kUnits[0])->entryRemove(FecClient::Key(2), nullptr);
  while (agent_->fec().entryLog()->tableVersion() == version) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  agent_->fec().entryLog()->tableEntryLog()->entryLogConfigDel(
      agent_->fec().entryLog()->tableVersion());
  stop();
  start();
  EXPECT_EQ(agent_->fec().entryLog()->tableConfigGlint(kUnits[0])->swTableEntries().rowCount(), 2U);
  EXPECT_EQ(entries(kUnits[0]), 2U);
  EXPECT_TRUE(hardwareEqual());
  stop();
  expectStateIsClean();
}

// Its log row is still there: the report cleans both up.
TEST_F(FecAgentTest, ADeletionThatTheHardwareHadNotTakenIsCleanedUpByTheReportAndNotSwept) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  agent_->fec().swTable(kUnits[0])->entryRemove(FecClient::Key(2), nullptr);
  while (agent_->fec().entryLog()->tableVersion() == version) {
    ASSERT_TRUE(agent_->loop().runOne());
  }
  stop();
  agent_ = std::make_unique<FecAgent>(root_.path(), kUnits, simulatedHardware());
  auto& rows = agent_->fec().entryLog()->tableConfigGlint(kUnits[0])->swTableEntries();
  EXPECT_EQ(rows.rowCount(), 3U);
  agent_->loop().runUntilIdle();
  EXPECT_EQ(rows.rowCount(), 2U);
  EXPECT_TRUE(hardwareEqual());
}

// The agent dies between a deletion's configuration row and its log row: no version of the log is
// the deletion's own, until the next operation is given that version.
TEST_F(FecAgentTest, ADeletionThatWasNeverLoggedIsSweptWhenItsVersionHasBeenApplied) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  const auto rowsOf = [this]() -> auto& {
    return agent_->fec().entryLog()->tableConfigGlint(kUnits[0])->swTableEntries();
  };
  const auto row = rowsOf().row(FecClient::Key(2));
  rowsOf().rowIs({row->logEntry(), row->rsrcKeys(), Asic::LogVersion(version.value() + 1), true});
  stop();
  start();
  EXPECT_EQ(rowsOf().rowCount(), 3U);
  EXPECT_TRUE(hardwareEqual());
  write({4}, 10);
  stop();
  start();
  EXPECT_EQ(rowsOf().rowCount(), 3U) << "1, 3 and 4";
  EXPECT_TRUE(hardwareEqual());
}

// An agent that cannot be made: the process may make another one, which has nothing of the first.
class FailedStartTest : public FecAgentTest {
 protected:
  static constexpr std::uint64_t kFirstBit = 0;  // of a file, in what its header begins with

  FailedStartTest() {
    write({1, 2, 3}, 10);
    stop();
  }
  // A repair needs the folder to itself, and mends what is damaged.
  void expectFolderIsFreeAndAnotherAgentWorks() {
    const Tools::RepairReport report = Tools::carryOutRepair(root_.path());
    EXPECT_NE(report.outcome, Tools::RepairReport::Outcome::cannot) << Tools::repairText(report, 0);
    start();
    write({2, 4}, 20);
    EXPECT_TRUE(hardwareEqual());
    stop();
    expectStateIsClean();
  }
};

TEST_F(FailedStartTest, AUnitWhoseFileIsDamagedLeavesNothingOfTheAgent) {
  testing_support::flipBit(fileOf(Tools::TableRole::config, kUnits[1]), kFirstBit);
  EXPECT_THROW(start(), ZevGlint::MountException);
  expectFolderIsFreeAndAnotherAgentWorks();
}

TEST_F(FailedStartTest, AUnitTooManyLeavesNothingOfTheAgent) {
  std::vector<Asic::UnitId> units;
  for (std::uint16_t unit = 0; unit <= LoamFec::FecTableConstants::kMaxUnits; ++unit) {
    units.emplace_back(unit);
  }
  EXPECT_THROW(FecAgent(root_.path(), units, simulatedHardware()), LoamFec::FecTableUnitsException);
  expectFolderIsFreeAndAnotherAgentWorks();
}

TEST_F(FailedStartTest, HardwareThatCannotMountLeavesNothingOfTheAgent) {
  const auto flip = [this] {
    testing_support::flipBit(fileOf(Tools::TableRole::config), kFirstBit);
  };
  EXPECT_THROW(startWhileDamaging("FecTableInterface", " Restoring entries", flip),
               ZevGlint::MountException);
  flip();
  expectFolderIsFreeAndAnotherAgentWorks();
}

TEST_F(FailedStartTest, AnAgentOfAnotherFolderAnswersAfterIt) {
  testing_support::flipBit(fileOf(Tools::TableRole::config, kUnits[1]), kFirstBit);
  EXPECT_THROW(start(), ZevGlint::MountException);
  const testing_support::TemporaryRoot other;
  agent_ = std::make_unique<FecAgent>(other.path(), kUnits, simulatedHardware());
  EXPECT_EQ(entries(kUnits[0]), 0U);
  write({7}, 30);
  EXPECT_EQ(entries(kUnits[0]), 1U);
  EXPECT_TRUE(hardwareEqual());
  stop();
}

// What the hardware has applied is on record elsewhere, and stays.
TEST_F(FecAgentTest, WhatIsWrittenAfterTheDamagedLogWasRemovedReachesTheHardware) {
  write({1, 2, 3}, 10);
  const auto version = agent_->fec().entryLog()->tableVersion();
  stop();
  testing_support::flipBit(fileOf(Tools::TableRole::log), 0);
  EXPECT_THROW(start(), ZevGlint::MountException);
  ASSERT_TRUE(std::filesystem::remove(fileOf(Tools::TableRole::log)));
  start();
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion(), version);
  write({2, 4}, 20);
  EXPECT_EQ(agent_->fec().entryLog()->tableVersion().value(), version.value() + 4);
  EXPECT_TRUE(hardwareEqual());
  const auto held = heldEntry(agent_->hardware(), kUnits[1], 2);
  ASSERT_TRUE(held);
  EXPECT_EQ(held->opaqueA, 20U);
  stop();
  expectStateIsClean();
}

TEST_F(FecAgentTest, FreshHardwareHasNothingToCompare) {
  write({1, 2}, 10);
  stop();
  start();
  EXPECT_EQ(agent_->resynchronisation().unchanged + agent_->resynchronisation().added, 0U);
  EXPECT_TRUE(hardwareEqual());
}

}  // namespace
