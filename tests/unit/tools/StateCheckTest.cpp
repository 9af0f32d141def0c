// SPDX-License-Identifier: Apache-2.0

// The check of a state folder: what it finds in files, what it takes for the remainder of a kill,
// and when it cannot tell.

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "StateImage.h"
#include "ToolsFixture.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Tools::checkState;
using Tools::StateReport;
using Tools::TableRole;
using tools_test::FecHarness;
using tools_test::IsClean;
using tools_test::RawTables;
using ConfigRow = LoamFec::FecTableDataModelConfigGlintEntry;
using LogRow = LoamFec::FecTableDataModelLogGlintEntry;

constexpr uid_t kNobody = 65534;

class StateCheckTest : public tools_test::StateFolderTest {
 protected:
  StateReport check() const { return checkState(folder()); }

  static void changeARow(const RawTables& tables) {
    tables.config->swTableEntriesIs(
        ConfigRow(FecHarness::entry("eth1", 1).logEntry(), {}, Asic::LogVersion(1), false));
  }

  // There is a finding of that kind about that file.
  void expectFinding(const char* kind, TableRole role, const char* text) const {
    const StateReport report = check();
    EXPECT_THAT(report, Not(IsClean()));
    const auto found = std::find_if(
        report.findings.begin(), report.findings.end(), [&](const Tools::Remark& finding) {
          return finding.kind == kind && finding.file == Tools::fileNameOf(role);
        });
    ASSERT_NE(found, report.findings.end()) << Tools::reportText(report, 0);
    EXPECT_THAT(found->text, HasSubstr(text));
  }
};

TEST_F(StateCheckTest, WhatAnAgentHasLeftIsClean) {
  const StateReport report = check();
  EXPECT_THAT(report, IsClean());
  EXPECT_THAT(kindsOf(report.findings), IsEmpty());
  EXPECT_THAT(kindsOf(report.notes), IsEmpty());
  EXPECT_EQ(report.writer, std::nullopt);
  EXPECT_EQ(report.looks, 1);
  ASSERT_EQ(report.tables.size(), 5U);
  EXPECT_EQ(report.tables[0].file, Tools::fileNameOf(TableRole::config));
  EXPECT_EQ(report.tables[0].rows, kEntries + 1) << "99 came, 3 is marked";
  EXPECT_EQ(report.tables[0].capacity, LoamFec::FecTableConstants::kConfigCapacity);
  EXPECT_EQ(report.tables[0].slotsInUse, 1024U);
  EXPECT_EQ(report.tables[0].freeSlots, 1024U - kEntries - 1);
}

TEST_F(StateCheckTest, ACheckChangesNothing) {
  const auto before = testing_support::stateContents(folder());
  check();
  EXPECT_EQ(testing_support::stateContents(folder()), before);
}

// ---- one table

TEST_F(StateCheckTest, ADamagedRowIsAFindingWithItsKeyAndVersion) {
  damageRow(TableRole::config, 0);
  expectFinding("damaged_row", TableRole::config, "as far as it can be read: FEC 1, version 1");
}

TEST_F(StateCheckTest, DamagedRowsOfTheOtherTablesAreToldInTheirTerms) {
  damageRow(TableRole::log, 0);  // slots are taken anew from the last that was given back on
  expectFinding("damaged_row", TableRole::log, "version 63, unit 0, FEC 99");
  damageRow(TableRole::groupLog, 0, 30);
  expectFinding("damaged_row", TableRole::groupLog, "sequence 63, version 63 of table 03:01:0805");
  damageRow(TableRole::applied, 0, 5);
  expectFinding("damaged_row", TableRole::applied, "table 03:01:0805, version 60");
}

TEST_F(StateCheckTest, ADamagedLinkIsAFinding) {
  const testing_support::TablePlaces places(path(TableRole::config));
  testing_support::flipBit(path(TableRole::config), 8 * places.head(places.usedBuckets().front()));
  expectFinding("damaged_structure", TableRole::config, "leads nowhere");
}

TEST_F(StateCheckTest, ADamagedSeqIsAFinding) {
  const testing_support::TablePlaces places(path(TableRole::log));
  testing_support::flipBit(path(TableRole::log), 8 * places.slot(places.liveSlots().front()) + 5);
  expectFinding("damaged_structure", TableRole::log, "; it held version 63, unit 0, FEC 99");
}

TEST_F(StateCheckTest, ADamagedCounterIsAFinding) {
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, rowCount));
  expectFinding("damaged_counter", TableRole::config, "row count: impossible word");
}

TEST_F(StateCheckTest, SlotsThatCannotBeToldAreAFindingAndTheirTableIsLeftOut) {
  testing_support::flipBit(path(TableRole::config), 8 * offsetof(Glint::Header, slotsInUse));
  EXPECT_THAT(kindsOf(check().findings), Contains("damaged_structure"));
  EXPECT_THAT(kindsOf(check().findings), ::testing::Not(Contains("log_and_configuration")));
}

TEST_F(StateCheckTest, ADamagedScratchpadIsAFinding) {
  testing_support::flipBit(path(TableRole::log), 8 * (offsetof(Glint::Header, scratchpad) + 3));
  expectFinding("damaged_structure", TableRole::log, "scratchpad: impossible seq");
}

TEST_F(StateCheckTest, ADamagedHeaderIsAFinding) {
  testing_support::flipBit(path(TableRole::groupLog), 8 * 40);
  expectFinding("unusable_table", TableRole::groupLog, "its header is damaged (checksum)");
}

TEST_F(StateCheckTest, ATruncatedFileIsAFinding) {
  fs::resize_file(path(TableRole::log), 4096 * 3);
  expectFinding("unusable_table", TableRole::log, "it has 12288 bytes, but its header says");
  fs::resize_file(path(TableRole::log), 10);
  expectFinding("unusable_table", TableRole::log, "it is too short for a shared table");
}

TEST_F(StateCheckTest, AnotherTablesFileUnderTheNameIsAFinding) {
  fs::remove(path(TableRole::log));
  fs::copy_file(path(TableRole::applied), path(TableRole::log));
  expectFinding("unusable_table", TableRole::log, "it holds rows of Asic::GroupVersionRow");
}

TEST_F(StateCheckTest, ASymbolicLinkIsAFindingWhereverItLeads) {
  fs::rename(path(TableRole::applied), parent_.path() + "/elsewhere");
  fs::create_symlink(parent_.path() + "/elsewhere", path(TableRole::applied));
  expectFinding("unusable_table", TableRole::applied, "it is a symbolic link");
}

TEST_F(StateCheckTest, EarlierDamageThatIsOutOfUseIsANote) {
  damageRow(TableRole::config, 20);
  { const RawTables tables(folder()); }
  const StateReport report = check();
  EXPECT_THAT(report, IsClean());
  ASSERT_THAT(kindsOf(report.notes), ElementsAre("earlier_damage"));
  EXPECT_EQ(report.notes.front().text,
            "1 corruption since the table was made, 1 slot out of use for good");
  EXPECT_EQ(report.tables[0].retiredSlots, 1U);
  EXPECT_EQ(report.tables[0].corruptions, 1U);
}

TEST_F(StateCheckTest, ATableOfAnotherKindIsVerifiedForItself) {
  fs::copy_file(path(TableRole::applied), folder() + "/other.table");
  EXPECT_THAT(check(), IsClean());
  EXPECT_EQ(check().tables.size(), 6U);
  testing_support::flipBit(folder() + "/other.table", 8 * offsetof(Glint::Header, rowCount));
  EXPECT_THAT(kindsOf(check().findings), ElementsAre("damaged_counter"));
}

// ---- files against each other

TEST_F(StateCheckTest, EachTableThatIsMissingIsAFinding) {
  for (const TableRole role : {TableRole::groupLog, TableRole::applied, TableRole::log}) {
    const std::string copy = parent_.path() + "/kept";
    fs::rename(path(role), copy);
    EXPECT_THAT(kindsOf(check().findings), Contains("missing_table"));
    expectFinding("missing_table", role, "it is missing");
    fs::rename(copy, path(role));
  }
  EXPECT_THAT(check(), IsClean());
}

TEST_F(StateCheckTest, AConfigurationTableThatTheLogSpeaksOfIsMissed) {
  fs::remove(path(TableRole::config));
  expectFinding("missing_table", TableRole::log,
                "unit 0 has no configuration table, but the log has 3 rows of it");
}

TEST_F(StateCheckTest, AnAgentThatDiedWhileItMadeItsTablesLeavesNoFinding) {
  std::string name = Tools::fileNameOf(TableRole::config);
  fs::remove(path(TableRole::config, 1));
  fs::rename(path(TableRole::config), folder() + "/.new." + name);
  {
    const testing_support::TablePlaces log(path(TableRole::log));
    ASSERT_EQ(log.liveSlots().size(), 3U);
  }
  fs::remove(path(TableRole::log));
  const StateReport report = check();
  EXPECT_THAT(report, IsClean());
  EXPECT_THAT(kindsOf(report.notes), Contains("unfinished_file"));
  fs::remove(path(TableRole::applied));
  EXPECT_THAT(check(), IsClean());
  fs::remove(path(TableRole::groupLog));
  EXPECT_THAT(check(), IsClean());
  fs::remove(folder() + "/.new." + name);
  EXPECT_THAT(check(), IsClean()) << "the lock file is there: an agent was here";
}

// ---- what a kill leaves

// The stores of one change, in order; each a step that a kill may follow.
using Steps = std::vector<std::function<void(RawTables&)>>;

class CutShortTest : public StateCheckTest {
 protected:
  // After each step the state is clean, and an agent that starts there ends in a clean one.
  void expectEachPrefixClean(const Steps& steps) const {
    for (std::size_t cut = 0; cut <= steps.size(); ++cut) {
      SCOPED_TRACE("cut after " + std::to_string(cut));
      const std::string copy = parent_.path() + "/cut" + std::to_string(cut);
      testing_support::copyState(folder(), copy);
      {
        RawTables tables(copy);
        for (std::size_t step = 0; step < cut; ++step) {
          steps[step](tables);
        }
      }
      const StateReport left = checkState(copy);
      EXPECT_THAT(left, IsClean());
      goOn(copy);
      const StateReport after = checkState(copy);
      EXPECT_THAT(after, IsClean());
    }
  }

  static void goOn(const std::string& copy) {
    FecHarness agent;
    agent.stop();
    for (const auto& file : fs::directory_iterator(agent.stateFolder())) {
      fs::remove(file.path());
    }
    for (const auto& file : fs::directory_iterator(copy)) {
      fs::rename(file.path(), agent.stateFolder() + "/" + file.path().filename().string());
    }
    agent.restart();
    agent.makeTable(0);
    agent.makeTable(1);
    agent.reportAll();
    agent.run();
    agent.destinationIs("eth1", 7);
    const auto last = agent.log().tableVersion();
    agent.table().entryWrite(FecHarness::key(7), FecHarness::entry("eth1", 700), nullptr);
    agent.table(1).entryRemove(FecHarness::key(8), nullptr);
    agent.run();
    EXPECT_EQ(agent.log().tableVersion().value(), last.value() + 2);
    agent.stop();
    testing_support::copyState(agent.stateFolder(), copy);
  }

  static Asic::LogVersion next(const RawTables& tables) {
    return Asic::LogVersion(tables.lastVersion() + 1);
  }
  static LoamFec::FecTableDataModelLogEntry entryWith(std::uint32_t fecId, std::uint32_t mark) {
    LoamFec::FecTableDataModelEntry entry = FecHarness::entry("eth1", mark);
    entry.key = FecHarness::key(fecId);
    return entry.logEntry();
  }
  static void logRow(RawTables& tables, std::uint16_t operation, std::uint32_t fecId) {
    tables.log->entryLogConfigIs(LogRow(next(tables), operation, Asic::UnitId(0),
                                        operation == LogRow::kTableDeleted
                                            ? LoamFec::FecTableDataModelLogEntry()
                                            : entryWith(fecId, 5)));
  }
  static void configRow(RawTables& tables, std::uint32_t fecId, bool isDeleted) {
    tables.config->swTableEntriesIs(ConfigRow(entryWith(fecId, 5), {}, next(tables), isDeleted));
  }
  static void scratchpad(RawTables& tables) {
    tables.log->entryLogConfig().control().scratchpadIs(next(tables).value());
  }
  // The first free sequence, as an agent takes it that finds a row above the scratchpad.
  static std::uint64_t nextSequence(const RawTables& tables) {
    auto& rows = tables.group->groupLog();
    std::uint64_t sequence = rows.control().scratchpad() + 1;
    while (rows.has(sequence)) {
      ++sequence;
    }
    return sequence;
  }
  static void groupRowWith(RawTables& tables, std::uint32_t marks) {
    tables.group->groupLog().rowIs(Asic::GroupLogRow(
        nextSequence(tables),
        {LoamFec::FecTableConstants::kTableId, Asic::LogVersion(tables.lastVersion())}, {}, marks));
  }
  static void groupRow(RawTables& tables) { groupRowWith(tables, 0); }
  static void groupScratchpad(RawTables& tables) {
    tables.group->groupLog().control().scratchpadIs(nextSequence(tables) - 1);
  }
  static Steps change(std::uint16_t operation, std::uint32_t fecId) {
    return {
        [=](RawTables& tables) { configRow(tables, fecId, operation == LogRow::kEntryDeleted); },
        [=](RawTables& tables) { logRow(tables, operation, fecId); }, scratchpad, groupRow,
        groupScratchpad};
  }
};

TEST_F(CutShortTest, AWriteAnywhere) {
  expectEachPrefixClean(change(LogRow::kEntryWritten, 500));
  expectEachPrefixClean(change(LogRow::kEntryWritten, 7));
}

TEST_F(CutShortTest, AWriteThatIsAnnouncedInThreeRowsAnywhere) {
  using Asic::GroupLogRow;
  Steps steps = change(LogRow::kEntryWritten, 500);
  steps.resize(steps.size() - 2);
  for (const std::uint32_t marks :
       {GroupLogRow::kContinued, GroupLogRow::kContinued | GroupLogRow::kContinuation,
        GroupLogRow::kContinuation}) {
    steps.push_back([=](RawTables& tables) { groupRowWith(tables, marks); });
  }
  steps.push_back(groupScratchpad);
  expectEachPrefixClean(steps);
}

TEST_F(CutShortTest, ADeletionAnywhere) { expectEachPrefixClean(change(LogRow::kEntryDeleted, 7)); }

TEST_F(CutShortTest, ATableDeletionAnywhere) {
  Steps steps;
  for (std::uint32_t fecId = 1; fecId <= kEntries; ++fecId) {
    steps.push_back([=](RawTables& tables) { configRow(tables, fecId, true); });
  }
  steps.push_back([=](RawTables& tables) { configRow(tables, 99, true); });
  steps.push_back([=](RawTables& tables) { logRow(tables, LogRow::kTableDeleted, 0); });
  steps.insert(steps.end(), {scratchpad, groupRow, groupScratchpad});
  expectEachPrefixClean(steps);
}

// The log holds the deletion of 3 (61), the change of 4 (62) and the new 99 (63).
TEST_F(CutShortTest, ACleanUpAnywhere) {
  Steps steps;
  for (const std::uint64_t version : {61U, 62U, 63U}) {
    steps.push_back(
        [=](RawTables& tables) { tables.log->entryLogConfigDel(Asic::LogVersion(version)); });
    if (version == 61) {
      steps.push_back(
          [](RawTables& tables) { tables.config->swTableEntriesDel(FecHarness::key(3)); });
    }
  }
  steps.push_back([](RawTables& tables) {
    tables.applied->appliedVersions().rowIs(
        Asic::GroupVersionRow({LoamFec::FecTableConstants::kTableId, Asic::LogVersion(63)}));
  });
  for (const std::uint64_t sequence : {61U, 62U, 63U}) {
    steps.push_back([=](RawTables& tables) { tables.group->groupLog().rowDel(sequence); });
  }
  expectEachPrefixClean(steps);
}

TEST_F(CutShortTest, OneChangeAfterTheOther) {
  for (std::uint32_t kill = 0; kill < 25; ++kill) {
    SCOPED_TRACE(kill);
    const bool isDeletion = kill % 3 == 2;
    const Steps steps =
        change(isDeletion ? LogRow::kEntryDeleted : LogRow::kEntryWritten, 10 + kill % 4);
    RawTables tables(folder());
    for (std::size_t step = 0; step <= kill % 5; ++step) {
      steps[step](tables);
    }
    const StateReport left = check();
    ASSERT_THAT(left, IsClean());
  }
}

// ---- beside an agent

TEST_F(StateCheckTest, TheHolderOfTheLockIsNamed) {
  const RawTables agent(folder());
  const StateReport report = check();
  EXPECT_THAT(report, IsClean());
  ASSERT_TRUE(report.writer.has_value());
  EXPECT_THAT(*report.writer, HasSubstr("process " + std::to_string(::getpid())));
  EXPECT_THAT(Tools::reportText(report, 0), HasSubstr("in use by process"));
}

TEST_F(StateCheckTest, AnAgentThatChangesSomethingDuringEveryLookCannotBeChecked) {
  const RawTables agent(folder());
  int looks = 0;
  const auto changeSomething = [&] {
    ++looks;
    changeARow(agent);
  };
  std::string why;
  try {
    const Tools::StateImage image(folder(), changeSomething);
  } catch (const Tools::CannotTell& cannot) {
    why = cannot.what();
  }
  EXPECT_THAT(why, AllOf(HasSubstr("changed the tables during each of 120 looks"),
                         HasSubstr("process " + std::to_string(::getpid()))));
  EXPECT_EQ(looks, Tools::StateImage::kMaxLooks);
}

TEST_F(StateCheckTest, TheFirstLookThatNothingDisturbsCounts) {
  const RawTables agent(folder());
  int looks = 0;
  const std::string made = folder() + "/made.table";
  const Tools::StateImage image(folder(), [&] {
    switch (++looks) {
      case 1:
        changeARow(agent);
        return;
      case 2:
        agent.config->swTableEntriesDel(FecHarness::key(20));
        return;
      case 3:
        agent.group->groupLog().control().scratchpadIs(64);
        return;
      case 4:
        fs::copy_file(path(TableRole::applied), made);
        return;
      default:
        return;
    }
  });
  EXPECT_EQ(image.looks(), 5);
  EXPECT_EQ(image.tables().size(), 6U);
}

TEST_F(StateCheckTest, BesideAnAgentAtWorkThereAreNoFindings) {
  std::array<int, 2> begun{};
  ASSERT_EQ(::pipe(begun.data()), 0);
  testing_support::ForkedChild agent([&] {
    const RawTables tables(folder());
    for (std::uint32_t change = 0;; ++change) {
      const auto key = FecHarness::key(1000 + change % 50);
      if (change % 3 == 2) {
        tables.config->swTableEntriesDel(key);
      } else {
        LoamFec::FecTableDataModelEntry entry = FecHarness::entry("eth1", change);
        entry.key = key;
        tables.config->swTableEntriesIs(
            ConfigRow(entry.logEntry(), {}, Asic::LogVersion(60), false));
      }
      if (change == 0 && ::write(begun[1], "x", 1) != 1) {
        return 1;
      }
    }
  });
  char byte = 0;
  ASSERT_EQ(::read(begun[0], &byte, 1), 1);
  for (int times = 0; times < 5; ++times) {
    const StateReport report = check();
    EXPECT_THAT(kindsOf(report.findings), IsEmpty()) << Tools::reportText(report, 0);
    if (report.cannotTell.empty()) {
      EXPECT_NE(report.writer, std::nullopt);
    }
  }
  agent.kill();
  EXPECT_THAT(check(), IsClean());
  ::close(begun[0]);
  ::close(begun[1]);
}

// ---- folders that cannot be checked

TEST_F(StateCheckTest, WithoutAFolderNothingCanBeTold) {
  EXPECT_THAT(checkState(folder() + "/none").cannotTell, HasSubstr("cannot read the state folder"));
  EXPECT_FALSE(fs::exists(folder() + "/none"));
  fs::create_directory(parent_.path() + "/empty");
  EXPECT_THAT(checkState(parent_.path() + "/empty").cannotTell, HasSubstr("it holds no table"));
  std::ofstream(parent_.path() + "/file") << "text";
  EXPECT_NE(checkState(parent_.path() + "/file").cannotTell, "");
  fs::create_symlink(folder(), parent_.path() + "/link");
  EXPECT_THAT(checkState(parent_.path() + "/link").cannotTell, HasSubstr("symbolic link"));
}

TEST_F(StateCheckTest, WithoutPermissionNothingCanBeTold) {
  fs::permissions(parent_.path(), fs::perms::all);
  fs::permissions(folder(), fs::perms::all);
  fs::permissions(path(TableRole::log), fs::perms::none);
  for (const TableRole role : {TableRole::groupLog, TableRole::applied}) {
    fs::permissions(path(role), fs::perms::all);
  }
  fs::permissions(path(TableRole::config), fs::perms::all);
  fs::permissions(path(TableRole::config, 1), fs::perms::all);
  testing_support::ForkedChild child([&] {
    if (::geteuid() == 0 && ::seteuid(kNobody) != 0) {
      return 1;
    }
    const StateReport report = check();
    const bool told = report.cannotTell.find(Tools::fileNameOf(TableRole::log)) == 0 &&
                      report.cannotTell.find("no permission") != std::string::npos;
    return told && report.findings.empty() && report.tables.size() == 4 ? 0 : 2;
  });
  EXPECT_EQ(child.wait(), testing_support::Ending::exited(0));
}

// What keeps this process from reading a table is no fault of the table's.
TEST_F(StateCheckTest, WithoutMemoryNothingCanBeTold) {
  testing_support::ForkedChild child([&] {
    if (!tools_test::leaveLittleMemory()) {
      return 1;
    }
    const StateReport report = check();
    const bool told =
        report.cannotTell.find(Tools::fileNameOf(TableRole::groupLog)) != std::string::npos &&
        report.cannotTell.find("cannot map it") != std::string::npos;
    return told && report.findings.empty() ? 0 : 2;
  });
  EXPECT_EQ(child.wait(), testing_support::Ending::exited(0));
}

// ---- what is shown

TEST_F(StateCheckTest, TheTextHasOneLineAFindingAndASummary) {
  damageRow(TableRole::config, 20);
  damageRow(TableRole::config, 21);
  const std::string text = Tools::reportText(check(), 0);
  const std::string file = Tools::fileNameOf(TableRole::config);
  EXPECT_THAT(text, HasSubstr("finding  " + file + ": slot "));
  EXPECT_THAT(text, HasSubstr("5 tables, 2 findings, 0 notes; no agent uses it\n"));
  const std::string limited = Tools::reportText(check(), 1);
  EXPECT_THAT(limited, HasSubstr("finding  ... 1 more; --limit 0 shows all\n"));
}

TEST_F(StateCheckTest, ANameThatIsNoTextStillGivesJson) {
  std::ofstream(folder() + "/\xFF.table") << "text";
  const auto json = nlohmann::json::parse(Tools::reportJson(check()));
  EXPECT_EQ(json["findings"][0]["file"], "\xEF\xBF\xBD.table");
}

TEST_F(StateCheckTest, TheJsonHoldsEverythingUnderStableKeys) {
  damageRow(TableRole::config, 20);
  const auto json = nlohmann::json::parse(Tools::reportJson(check()));
  EXPECT_EQ(json["state"], folder());
  EXPECT_EQ(json["verdict"], "findings");
  EXPECT_EQ(json["cannot_tell"], "");
  EXPECT_TRUE(json["writer"].is_null());
  EXPECT_EQ(json["findings"][0]["kind"], "damaged_row");
  EXPECT_EQ(json["findings"][0]["file"], Tools::fileNameOf(TableRole::config));
  EXPECT_TRUE(json["notes"].is_array());
  EXPECT_EQ(json["tables"].size(), 5U);
  EXPECT_EQ(json["tables"][0]["rows"], kEntries + 1);
  EXPECT_EQ(nlohmann::json::parse(Tools::reportJson(checkState("/none")))["verdict"],
            "cannot_tell");
}

}  // namespace
