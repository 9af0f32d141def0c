// SPDX-License-Identifier: Apache-2.0

// The repair of a state folder: what it would do changes nothing, what it does leaves a clean state
// with every row that was good, and an agent goes on from there.

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "StateRows.h"
#include "ToolsFixture.h"
#include "tools/StateRepair.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Tools::carryOutRepair;
using Tools::checkState;
using Tools::fileNameOf;
using Tools::planRepair;
using Tools::RepairReport;
using Tools::StateReport;
using Tools::TableRole;
using tools_test::FecHarness;
using tools_test::IsClean;
using tools_test::RawTables;
using Outcome = Tools::RepairReport::Outcome;

class StateRepairTest : public tools_test::StateFolderTest {
 protected:
  std::vector<std::string> steps(const RepairReport& report) const {
    std::vector<std::string> kinds;
    for (const Tools::RepairStep& step : report.steps) {
      kinds.push_back(step.kind);
    }
    return kinds;
  }

  // Repairs what is damaged: the plan changes nothing and is what is then done, the files that were
  // damaged are kept as they were, and the state is clean.
  RepairReport repair() const {
    const auto before = testing_support::stateContents(folder());
    const RepairReport plan = planRepair(folder());
    EXPECT_EQ(plan.outcome, Outcome::planned) << plan.why;
    EXPECT_THAT(plan.kept, IsEmpty());
    EXPECT_EQ(testing_support::stateContents(folder()), before);
    RepairReport report = carryOutRepair(folder());
    EXPECT_EQ(report.outcome, Outcome::done) << report.why;
    EXPECT_EQ(steps(report), steps(plan));
    const auto after = testing_support::stateContents(folder());
    for (const std::string& kept : report.kept) {
      EXPECT_EQ(after.at(kept), before.at(kept.substr(0, kept.rfind(".damaged-"))));
    }
    const StateReport checked = checkState(folder());
    EXPECT_THAT(checked, IsClean());
    EXPECT_EQ(planRepair(folder()).outcome, Outcome::nothingToDo);
    return report;
  }

  // The FEC identifiers of unit 0 that are there and not deleted.
  std::set<std::uint32_t> entries() const {
    std::set<std::uint32_t> found;
    const Tools::StateRows rows = readRows(Tools::StateImage(folder()));
    for (const auto& [fecId, row] : rows.units.at(0).value()) {
      if (!row.isDeleted()) {
        found.insert(fecId);
      }
    }
    return found;
  }
  std::uint64_t lastVersion() const {
    return readRows(Tools::StateImage(folder())).logScratchpad.value();
  }

  // Moves the state below an agent, which writes an entry more, and back.
  void anAgentGoesOn() const {
    const std::uint64_t last = lastVersion();
    const std::size_t count = entries().size();
    FecHarness agent;
    agent.stop();
    for (const auto& file : fs::directory_iterator(agent.stateFolder())) {
      fs::remove(file.path());
    }
    testing_support::copyState(folder(), agent.stateFolder());
    agent.restart();
    agent.makeTable(0);
    EXPECT_EQ(agent.log().entrys(Asic::UnitId(0)), count);
    agent.reportAll();
    agent.run();
    agent.destinationIs("eth1", 7);
    agent.table().entryWrite(FecHarness::key(1000), FecHarness::entry("eth1", 1), nullptr);
    agent.run();
    EXPECT_GT(agent.log().tableVersion().value(), last);
    EXPECT_TRUE(agent.table().entryHas(FecHarness::key(1000)));
    agent.stop();
    EXPECT_THAT(checkState(agent.stateFolder()), IsClean());
  }
};

TEST_F(StateRepairTest, OfAGoodStateThereIsNothingToDo) {
  const auto before = testing_support::stateContents(folder());
  EXPECT_EQ(planRepair(folder()).outcome, Outcome::nothingToDo);
  const RepairReport report = carryOutRepair(folder());
  EXPECT_EQ(report.outcome, Outcome::nothingToDo);
  EXPECT_THAT(report.steps, IsEmpty());
  auto after = testing_support::stateContents(folder());
  after[".writer"] = before.at(".writer");
  EXPECT_EQ(after, before) << "but for the lock file's text";
}

TEST_F(StateRepairTest, ADamagedRowIsDroppedAndToldByKeyAndVersion) {
  damageRow(TableRole::config, 9);  // FEC 10, whose version is 19
  auto expected = entries();
  EXPECT_FALSE(expected.contains(10)) << "it is not among the rows that check out";
  EXPECT_EQ(expected.size(), kEntries - 1);
  const RepairReport report = repair();
  ASSERT_THAT(steps(report), ElementsAre("damaged_row"));
  EXPECT_THAT(report.steps[0].text, HasSubstr("FEC 10, version 19"));
  EXPECT_THAT(report.kept, ElementsAre(fileNameOf(TableRole::config) + ".damaged-1"));
  EXPECT_EQ(entries(), expected);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ALogRowWhoseConfigurationRowIsLostGoesWithIt) {
  const Tools::StateRows rows = readRows(Tools::StateImage(folder()));
  ASSERT_EQ(rows.units.at(0)->at(99).version().value(), 63U);
  damageRow(TableRole::config, kEntries);  // FEC 99 came last
  const RepairReport report = repair();
  EXPECT_THAT(steps(report), ElementsAre("damaged_row", "log_and_configuration"));
  EXPECT_FALSE(readRows(Tools::StateImage(folder())).log->contains(63));
  EXPECT_EQ(lastVersion(), 63U) << "versions are not given twice";
  anAgentGoesOn();
}

TEST_F(StateRepairTest, DamagedRowsOfLogGroupLogAndAppliedVersionsAreDropped) {
  damageRow(TableRole::log, 1);
  damageRow(TableRole::groupLog, 2);
  damageRow(TableRole::applied, 0, 9);
  const auto expected = entries();
  const RepairReport report = repair();
  EXPECT_EQ(report.kept.size(), 3U);
  EXPECT_EQ(entries(), expected);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ADamagedIndexIsBuiltAnewAndNoRowIsLost) {
  const auto expected = entries();
  const testing_support::TablePlaces places(path(TableRole::config));
  for (const std::uint32_t bucket : places.usedBuckets()) {
    testing_support::flipBit(path(TableRole::config), 8 * places.head(bucket) + bucket % 24);
  }
  const RepairReport report = repair();
  EXPECT_THAT(steps(report), Contains("damaged_structure"));
  EXPECT_EQ(entries(), expected);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ADamagedSeqCostsItsRow) {
  auto expected = entries();
  const testing_support::TablePlaces places(path(TableRole::config));
  testing_support::flipBit(path(TableRole::config), 8 * places.slot(places.liveSlots()[5]) + 3);
  testing_support::flipBit(path(TableRole::config), 8 * places.slot(500) + 3);
  const RepairReport report = repair();
  EXPECT_THAT(report.steps[0].text, HasSubstr("; it held FEC 6, version 11"));
  EXPECT_THAT(report.steps[1].text, HasSubstr("slot 500: impossible seq"));
  EXPECT_THAT(report.steps[1].text, HasSubstr("; it held no row"));
  expected.erase(6);
  EXPECT_EQ(entries(), expected);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, SlotsThatCannotBeToldAreFoundAgain) {
  const auto expected = entries();
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, slotsInUse) + 10);
  repair();
  EXPECT_EQ(entries(), expected);
  EXPECT_EQ(checkState(folder()).tables[0].slotsInUse, 1024U);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, SlotsThatCannotBeToldAreFoundBehindAGap) {
  constexpr std::uint32_t kFirst = 1000;
  constexpr std::uint32_t kChunks = 3;
  {
    const RawTables tables(folder());
    for (std::uint32_t i = 0; i < kChunks * Glint::kChunkSlots - kEntries - 1; ++i) {
      LoamFec::FecTableDataModelEntry entry = FecHarness::entry("eth1", i);
      entry.key = FecHarness::key(kFirst + i);
      tables.config->swTableEntriesIs({entry.logEntry(), {}, Asic::LogVersion(60), false});
    }
  }
  const testing_support::TablePlaces places(path(TableRole::config));
  const std::uint64_t gapAt = places.slot(Glint::kChunkSlots);
  auto expected = entries();
  for (std::uint32_t slot = Glint::kChunkSlots; slot < 2 * Glint::kChunkSlots; ++slot) {
    const std::uint64_t firstWord =
        testing_support::wordAt(path(TableRole::config), places.liveRow(slot));
    expected.erase(static_cast<std::uint32_t>(firstWord));
  }
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, slotsInUse) + 10);
  std::fstream file(path(TableRole::config), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(gapAt));
  const std::string zeros(Glint::slotBytes(places.rowBytes) * Glint::kChunkSlots, '\0');
  file << zeros << std::flush;
  repair();
  EXPECT_EQ(entries(), expected);
  EXPECT_EQ(checkState(folder()).tables[0].slotsInUse, kChunks * Glint::kChunkSlots);
  anAgentGoesOn();
}

// The configuration rows can be told only once the table has been mended; what they say against the
// log then is told, and the log is kept, like anything that could be seen before.
TEST_F(StateRepairTest, WhatShowsOnlyInAMendedTableIsToldAndKeptAsWell) {
  damageRow(TableRole::config, kEntries);  // FEC 99, of the log's version 63
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, slotsInUse) + 10);
  const auto before = testing_support::stateContents(folder());
  EXPECT_THAT(steps(planRepair(folder())), ::testing::Not(Contains("log_and_configuration")));
  const RepairReport report = carryOutRepair(folder());
  EXPECT_EQ(report.outcome, Outcome::done) << report.why;
  EXPECT_THAT(steps(report), Contains("log_and_configuration"));
  const std::string log = fileNameOf(TableRole::log);
  EXPECT_THAT(report.kept,
              ElementsAre(fileNameOf(TableRole::config) + ".damaged-1", log + ".damaged-1"));
  EXPECT_EQ(testing_support::stateContents(folder())[log + ".damaged-1"], before.at(log));
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ADamagedCounterIsCountedAnew) {
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, rowCount));
  EXPECT_THAT(steps(repair()), ElementsAre("damaged_counter"));
  EXPECT_EQ(entries().size(), kEntries);
}

TEST_F(StateRepairTest, ADamagedScratchpadGoesOnWhereTheRowsShowItToBe) {
  for (const TableRole role : {TableRole::log, TableRole::groupLog}) {
    for (const std::uint64_t byte : {0U, 8U, 16U, 24U, 32U}) {
      testing_support::flipBit(path(role), 8 * (offsetof(Glint::Header, scratchpad) + byte) + 1);
    }
  }
  repair();
  const Tools::StateRows rows = readRows(Tools::StateImage(folder()));
  EXPECT_EQ(rows.logScratchpad, 63U);
  EXPECT_EQ(rows.groupScratchpad, 63U);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, OfADamagedScratchpadTheValueBeforeIsTakenIfItIsAboveAllRows) {
  {
    const RawTables tables(folder());
    tables.log->entryLogConfig().control().scratchpadIs(5000);
    tables.log->entryLogConfig().control().scratchpadIs(5001);
  }
  const std::uint64_t pad = offsetof(Glint::Header, scratchpad);
  const auto live = Glint::Seq(testing_support::wordAt(path(TableRole::log), pad)).copy();
  testing_support::flipBit(path(TableRole::log), 8 * (pad + 16 + 16 * live));
  repair();
  EXPECT_EQ(lastVersion(), 5000U);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, AFileWithoutAUsableHeaderIsSetAsideAndToldLoudly) {
  testing_support::flipBit(path(TableRole::config), 8 * 40);
  const RepairReport report = repair();
  ASSERT_THAT(report.steps, Not(IsEmpty()));
  EXPECT_EQ(report.steps[0].kind, "unusable_table");
  EXPECT_TRUE(report.steps[0].losesTable);
  EXPECT_THAT(Tools::repairText(report, 0),
              AllOf(HasSubstr("ALL ITS ROWS ARE LOST"),
                    HasSubstr("kept   " + fileNameOf(TableRole::config) + ".damaged-1\n")));
  EXPECT_THAT(entries(), IsEmpty());
  EXPECT_THAT(kindsOf(checkState(folder()).notes), Contains("kept_copy"));
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ALostLogGoesOnAboveEveryVersionThatIsKnown) {
  for (const auto& lose :
       std::vector<std::function<void()>>{[&] { fs::resize_file(path(TableRole::log), 4096); },
                                          [&] { fs::remove(path(TableRole::log)); }}) {
    lose();
    repair();
    EXPECT_EQ(lastVersion(), 63U);
    EXPECT_EQ(entries().size(), kEntries);
    anAgentGoesOn();
  }
}

TEST_F(StateRepairTest, ALostGroupLogAndLostAppliedVersionsBeginAnew) {
  fs::remove(path(TableRole::groupLog));
  fs::resize_file(path(TableRole::applied), 100);
  const RepairReport report = repair();
  EXPECT_THAT(steps(report), Contains("missing_table"));
  EXPECT_THAT(steps(report), Contains("unusable_table"));
  EXPECT_EQ(readRows(Tools::StateImage(folder())).groupScratchpad, 63U);
  anAgentGoesOn();
}

TEST_F(StateRepairTest, ASymbolicLinkIsSetAsideAndWhatItLeadsToIsLeftAlone) {
  const std::string elsewhere = parent_.path() + "/elsewhere";
  fs::rename(path(TableRole::applied), elsewhere);
  fs::create_symlink(elsewhere, path(TableRole::applied));
  EXPECT_EQ(carryOutRepair(folder()).outcome, Outcome::done);
  EXPECT_TRUE(fs::is_symlink(path(TableRole::applied) + ".damaged-1"));
  EXPECT_TRUE(fs::exists(elsewhere));
  EXPECT_THAT(checkState(folder()), IsClean());
}

TEST_F(StateRepairTest, WhatAKillHasLeftIsFinishedAndNothingIsKept) {
  {
    const RawTables tables(folder());
    tables.config->swTableEntriesIs(
        {FecHarness::entry("eth1", 1).logEntry(), {}, Asic::LogVersion(5), true});  // key 0
    tables.applied->appliedVersions().rowIs(
        Asic::GroupVersionRow({LoamFec::FecTableConstants::kTableId, Asic::LogVersion(62)}));
  }
  fs::copy_file(path(TableRole::applied), folder() + "/.new.some.table");
  const RepairReport report = repair();
  EXPECT_THAT(steps(report), ::testing::IsSupersetOf({"orphan", "applied_log_row",
                                                      "applied_group_row", "unfinished_file"}));
  EXPECT_THAT(report.kept, IsEmpty());
  EXPECT_FALSE(fs::exists(folder() + "/.new.some.table"));
  EXPECT_THAT(kindsOf(checkState(folder()).notes), IsEmpty());
  anAgentGoesOn();
}

TEST_F(StateRepairTest, AChangeInFlightIsFinished) {
  // A deletion whose slot is dead and still linked, as a kill behind its first store leaves it.
  const testing_support::TablePlaces places(path(TableRole::config));
  const std::uint32_t slot = places.liveSlots()[10];
  const Glint::Seq dead = places.seq(slot).deleted();
  testing_support::wordIs(path(TableRole::config), places.slot(slot), dead.word());
  EXPECT_THAT(kindsOf(checkState(folder()).notes), Contains("change_in_flight"));
  const RepairReport report = repair();
  EXPECT_THAT(steps(report), Contains("change_in_flight"));
  EXPECT_FALSE(entries().contains(11));
}

TEST_F(StateRepairTest, CopiesOfSeveralRepairsStandSideBySide) {
  damageRow(TableRole::config, 9);
  EXPECT_THAT(repair().kept, ElementsAre(fileNameOf(TableRole::config) + ".damaged-1"));
  damageRow(TableRole::config, 12);
  EXPECT_THAT(repair().kept, ElementsAre(fileNameOf(TableRole::config) + ".damaged-2"));
}

TEST_F(StateRepairTest, ARepairThatIsKilledWhileItCopiesLeavesNoHalfACopy) {
  damageRow(TableRole::config, 9);
  const auto before = testing_support::stateContents(folder());
  testing_support::ForkedChild killed([&] {
    const rlimit limit{1U << 20U, 1U << 20U};
    return ::setrlimit(RLIMIT_FSIZE, &limit) == 0
               ? static_cast<int>(carryOutRepair(folder()).kept.size())
               : 1;
  });
  EXPECT_EQ(killed.wait(), testing_support::Ending::killedBy(SIGXFSZ));
  const auto notes = kindsOf(checkState(folder()).notes);
  EXPECT_THAT(notes, Contains("unfinished_file"));
  EXPECT_THAT(notes, ::testing::Not(Contains("kept_copy")));
  const std::string config = fileNameOf(TableRole::config);
  EXPECT_THAT(carryOutRepair(folder()).kept, ElementsAre(config + ".damaged-1"));
  EXPECT_EQ(testing_support::stateContents(folder())[config + ".damaged-1"], before.at(config));
  EXPECT_THAT(kindsOf(checkState(folder()).notes), ::testing::Not(Contains("unfinished_file")));
}

TEST_F(StateRepairTest, ARepairThatIsKilledWhileItBuildsAnIndexIsRunAgain) {
  const auto expected = entries();
  const testing_support::TablePlaces places(path(TableRole::config));
  testing_support::wordIs(path(TableRole::config), offsetof(Glint::Header, generation),
                          std::uint64_t{7});
  testing_support::wordIs(path(TableRole::config), places.head(places.usedBuckets()[0]) & ~7U,
                          std::uint64_t{0});
  EXPECT_THAT(steps(repair()), Contains("change_in_flight"));
  EXPECT_EQ(entries(), expected);
  anAgentGoesOn();
}

// The copy of the small file is made first, and removed again; the large one has no room.
TEST_F(StateRepairTest, IfACopyCannotBeMadeNothingIsDone) {
  damageRow(TableRole::applied, 0, 9);
  damageRow(TableRole::groupLog, 2);
  fs::resize_file(path(TableRole::log), 4096);
  const auto before = testing_support::stateContents(folder());
  testing_support::ForkedChild child([&] {
    const rlimit limit{1U << 20U, 1U << 20U};
    if (::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
      return 1;
    }
    const RepairReport report = carryOutRepair(folder());
    const bool told = report.why.find("cannot make a copy") != std::string::npos;
    return told && report.outcome == Outcome::cannot && report.kept.empty() ? 0 : 2;
  });
  EXPECT_EQ(child.wait(), testing_support::Ending::exited(0));
  auto after = testing_support::stateContents(folder());
  after[".writer"] = before.at(".writer");
  EXPECT_EQ(after, before) << "but for the lock file's text";
}

// A table that only this process cannot read is not set aside.
TEST_F(StateRepairTest, WithoutMemoryNothingIsDone) {
  damageRow(TableRole::config, 9);
  const auto before = testing_support::stateContents(folder());
  testing_support::ForkedChild child([&] {
    if (!tools_test::leaveLittleMemory()) {
      return 1;
    }
    for (const RepairReport& report : {planRepair(folder()), carryOutRepair(folder())}) {
      if (report.outcome != Outcome::cannot || !report.kept.empty() ||
          report.why.find("cannot map it") == std::string::npos) {
        return 2;
      }
    }
    return 0;
  });
  EXPECT_EQ(child.wait(), testing_support::Ending::exited(0));
  auto after = testing_support::stateContents(folder());
  after[".writer"] = before.at(".writer");
  EXPECT_EQ(after, before) << "but for the lock file's text";
}

TEST_F(StateRepairTest, TablesOfAnotherKindAreLeftAlone) {
  const std::string other = folder() + "/other.table";
  fs::copy_file(path(TableRole::applied), other);
  testing_support::flipBit(other, 8 * offsetof(Glint::Header, rowCount));
  const RepairReport plan = planRepair(folder());
  EXPECT_EQ(plan.outcome, Outcome::cannot);
  EXPECT_THAT(kindsOf(plan.left), ElementsAre("other_table"));
  damageRow(TableRole::config, 9);
  const RepairReport report = carryOutRepair(folder());
  EXPECT_EQ(report.outcome, Outcome::cannot) << "there is something left";
  EXPECT_THAT(steps(report), ElementsAre("damaged_row"));
  EXPECT_EQ(checkState(folder()).findings.size(), 1U);
}

TEST_F(StateRepairTest, AStateInUseIsLeftAloneAndItsUserNamed) {
  damageRow(TableRole::config, 9);
  std::array<int, 2> begun{};
  ASSERT_EQ(::pipe(begun.data()), 0);
  testing_support::ForkedChild agent([&] {
    Glint::RootFolder root(folder());
    const auto lock = root.lockForWriting();
    return ::write(begun[1], "x", 1) == 1 ? ::pause() : 1;
  });
  char byte = 0;
  ASSERT_EQ(::read(begun[0], &byte, 1), 1);
  const auto before = testing_support::stateContents(folder());
  for (const RepairReport& report : {planRepair(folder()), carryOutRepair(folder())}) {
    EXPECT_EQ(report.outcome, Outcome::cannot);
    EXPECT_THAT(report.why, AllOf(HasSubstr("in use by"), HasSubstr("process "),
                                  HasSubstr("(StateToolsTest)")));
    EXPECT_THAT(report.steps, IsEmpty());
  }
  EXPECT_EQ(testing_support::stateContents(folder()), before);
  agent.kill();
  EXPECT_EQ(carryOutRepair(folder()).outcome, Outcome::done);
  ::close(begun[0]);
  ::close(begun[1]);
}

TEST_F(StateRepairTest, ABusyAgentIsNamedAtOnce) {
  std::array<int, 2> begun{};
  ASSERT_EQ(::pipe(begun.data()), 0);
  testing_support::ForkedChild agent([&] {
    const RawTables tables(folder());
    for (std::uint64_t value = 64;; ++value) {
      tables.group->groupLog().control().scratchpadIs(value);
      if (value == 64 && ::write(begun[1], "x", 1) != 1) {
        return 1;
      }
    }
  });
  char byte = 0;
  ASSERT_EQ(::read(begun[0], &byte, 1), 1);
  for (const RepairReport& report : {planRepair(folder()), carryOutRepair(folder())}) {
    EXPECT_EQ(report.outcome, Outcome::cannot);
    EXPECT_THAT(report.why, HasSubstr("in use by process"));
  }
  agent.kill();
  ::close(begun[0]);
  ::close(begun[1]);
}

TEST_F(StateRepairTest, WithoutAFolderNothingIsMade) {
  const std::string none = folder() + "/none";
  EXPECT_EQ(planRepair(none).outcome, Outcome::cannot);
  EXPECT_EQ(carryOutRepair(none).outcome, Outcome::cannot);
  EXPECT_FALSE(fs::exists(none));
}

TEST_F(StateRepairTest, TheJsonHoldsEverythingUnderStableKeys) {
  damageRow(TableRole::config, 9);
  auto json = nlohmann::json::parse(Tools::repairJson(planRepair(folder())));
  EXPECT_EQ(json["outcome"], "planned");
  EXPECT_EQ(json["steps"][0]["kind"], "damaged_row");
  EXPECT_EQ(json["steps"][0]["loses_table"], false);
  EXPECT_THAT(json["kept"], IsEmpty());
  json = nlohmann::json::parse(Tools::repairJson(carryOutRepair(folder())));
  EXPECT_EQ(json["outcome"], "done");
  EXPECT_EQ(json["kept"].size(), 1U);
  json = nlohmann::json::parse(Tools::repairJson(carryOutRepair(folder())));
  EXPECT_EQ(json["outcome"], "nothing_to_do");
}

// Any one bit of what is in use: the check says nothing of it only if nothing is lost by it, and
// after the repair all rows but the one that is hit are there.
TEST_F(StateRepairTest, AnyFlippedBitIsHarmlessOrFoundAndRepaired) {
  constexpr unsigned kSeed = 20261;
  constexpr int kFlips = 48;
  std::mt19937 random(kSeed);
  const std::string good = parent_.path() + "/good";
  testing_support::copyState(folder(), good);
  const auto expected = entries();
  int found = 0;
  for (int flip = 0; flip < kFlips; ++flip) {
    fs::remove_all(folder());
    testing_support::copyState(good, folder());
    const testing_support::TablePlaces places(path(TableRole::config));
    const std::uint64_t headerBit = random() % (8 * sizeof(Glint::Header));
    const std::uint64_t slotBit =
        8 * places.slot(0) + random() % (8 * Glint::slotBytes(places.rowBytes) * (kEntries + 1));
    const std::uint64_t linkBit = 8 * places.link(0) + random() % (32 * kEntries);
    const std::uint64_t bits[] = {headerBit, slotBit, linkBit};
    const std::uint64_t bit = bits[flip % 3];
    SCOPED_TRACE("seed " + std::to_string(kSeed) + ", bit " + std::to_string(bit));
    testing_support::flipBit(path(TableRole::config), bit);
    const StateReport checked = checkState(folder());
    if (checked.clean()) {
      EXPECT_EQ(entries(), expected);
      continue;
    }
    ++found;
    ASSERT_EQ(carryOutRepair(folder()).outcome, Outcome::done);
    const bool inSealedHeader = bit < 8 * offsetof(Glint::Header, generation);
    EXPECT_GE(entries().size() + 1, inSealedHeader ? 1 : expected.size());
    EXPECT_THAT(checkState(folder()), IsClean());
  }
  std::printf("seed %u: %d of %d flips were found and repaired\n", kSeed, found, kFlips);
  EXPECT_GT(found, kFlips / 4);
}

}  // namespace
