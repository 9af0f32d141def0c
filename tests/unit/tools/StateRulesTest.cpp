// SPDX-License-Identifier: Apache-2.0

// The rules that the rows of a state obey: each finding provoked, and each remainder of a kill told
// apart from it.

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StateRules.h"
#include "records/FecTableConstants.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Tools::ConfigRow;
using Tools::Judgement;
using Tools::LogRow;
using Tools::Mend;
using Tools::StateRows;

constexpr std::uint32_t kTable = LoamFec::FecTableConstants::kTableId.value();
constexpr std::uint32_t kOtherTable = 0x03010777;
constexpr std::uint32_t kFirst = Asic::GroupLogRow::kContinued;
constexpr std::uint32_t kMiddle = Asic::GroupLogRow::kContinued | Asic::GroupLogRow::kContinuation;
constexpr std::uint32_t kLast = Asic::GroupLogRow::kContinuation;

LoamFec::FecTableDataModelLogEntry entry(std::uint32_t fecId, std::uint32_t mark = 0) {
  LoamFec::FecTableDataModelLogEntry result;
  result.key = LoamFec::FecTableDataModelEntryKey(fecId);
  result.opaqueA = mark;
  return result;
}

// A state in the middle of its work: FEC 4 is applied at version 5, 7 is applied, and on the log
// are the write of 1 (8), the deletion of 2 (9) and the write of 3 (10).
class StateRulesTest : public ::testing::Test {
 protected:
  StateRulesTest() {
    rows_.units[0].emplace();
    rows_.log.emplace();
    rows_.group.emplace();
    rows_.applied.emplace();
    rows_.logScratchpad = 10;
    rows_.groupScratchpad = 20;
    (*rows_.applied)[kTable] = 7;
    config(4, 5);
    config(1, 8);
    config(2, 9, true);
    config(3, 10);
    log(8, LogRow::kEntryWritten, entry(1));
    log(9, LogRow::kEntryDeleted, entry(2));
    log(10, LogRow::kEntryWritten, entry(3));
    for (const std::uint64_t version : {8U, 9U, 10U}) {
      group(version + 10, version);
    }
  }

  void config(std::uint32_t fecId, std::uint64_t version, bool isDeleted = false,
              std::uint32_t mark = 0, std::uint16_t unit = 0) {
    rows_.units[unit]->insert_or_assign(
        fecId, ConfigRow(entry(fecId, mark), {}, Asic::LogVersion(version), isDeleted));
  }
  void log(std::uint64_t version, std::uint16_t operation,
           const LoamFec::FecTableDataModelLogEntry& logEntry = {}, std::uint16_t unit = 0) {
    rows_.log->insert_or_assign(
        version, LogRow(Asic::LogVersion(version), operation, Asic::UnitId(unit), logEntry));
  }
  void group(std::uint64_t sequence, std::uint64_t version, std::uint32_t table = kTable) {
    rows_.group->insert_or_assign(
        sequence, Asic::GroupLogRow(sequence, {Asic::SwTableId(table), Asic::LogVersion(version)}));
  }

  // One row of an operation of several.
  void groupPart(std::uint64_t sequence, std::uint64_t version, std::uint32_t marks) {
    rows_.group->insert_or_assign(
        sequence, Asic::GroupLogRow(sequence, {Asic::SwTableId(kTable), Asic::LogVersion(version)},
                                    {}, marks));
  }
  // The last change takes three rows, 20 to 22.
  void announceInThreeRows() {
    rows_.groupScratchpad = 22;
    groupPart(20, 10, kFirst);
    groupPart(21, 10, kMiddle);
    groupPart(22, 10, kLast);
  }

  std::vector<std::string> kinds(bool findings) const {
    std::vector<std::string> result;
    for (const Judgement& judgement : Tools::judge(rows_)) {
      if (judgement.isFinding == findings) {
        result.push_back(judgement.kind);
      }
    }
    return result;
  }
  std::vector<std::string> findings() const { return kinds(true); }
  std::vector<std::string> notes() const { return kinds(false); }

  // Carries out what the judgements ask for, until they ask for nothing.
  void mendAll() {
    for (int round = 0; round < 8; ++round) {
      for (const Judgement& judgement : Tools::judge(rows_)) {
        for (const Mend& mend : judgement.mends) {
          Tools::apply(mend, rows_);
        }
      }
    }
  }
  // One finding of that kind and nothing else, which mending takes away.
  void expectFinding(const char* kind, const char* text) {
    const auto judgements = Tools::judge(rows_);
    const auto found = std::find_if(judgements.begin(), judgements.end(),
                                    [](const Judgement& judgement) { return judgement.isFinding; });
    ASSERT_NE(found, judgements.end());
    EXPECT_EQ(found->kind, kind);
    EXPECT_THAT(found->text, HasSubstr(text));
    EXPECT_THAT(findings(), ElementsAre(kind));
    mendAll();
    EXPECT_THAT(findings(), IsEmpty());
  }
  void expectNoteOnly(const char* kind, const char* text = "") {
    EXPECT_THAT(findings(), IsEmpty());
    ASSERT_THAT(notes(), ElementsAre(kind));
    EXPECT_THAT(Tools::judge(rows_).front().text, HasSubstr(text));
  }

  StateRows rows_;
};

TEST_F(StateRulesTest, AStateInTheMiddleOfItsWorkIsClean) {
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(StateRulesTest, NothingAtAllIsClean) {
  rows_ = StateRows();
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

// ---- configuration rows and the scratchpad

TEST_F(StateRulesTest, ARowOneAheadOfTheLogIsWhatAKillLeaves) {
  config(5, 11);
  config(6, 11, true);
  expectNoteOnly("unlogged_change", "2 rows (FEC ");
}

TEST_F(StateRulesTest, ANoteAboutOneRowSpeaksOfOneRow) {
  config(5, 11);
  expectNoteOnly("unlogged_change", "1 row (FEC 5) one version ahead of the log");
}

TEST_F(StateRulesTest, ARowTwoAheadOfTheLogIsAFinding) {
  config(5, 12);
  expectFinding("above_log", "FEC 5 has version 12, but the log's last is 10");
  EXPECT_EQ(rows_.logScratchpad, 12U);
}

TEST_F(StateRulesTest, ARowWithoutAVersionOrWithAStrangeMarkIsAFinding) {
  config(5, 0);
  expectFinding("implausible_row", "FEC 5 has version 0");
}

TEST_F(StateRulesTest, ARowWhoseVersionWasGivenAgainIsWhatAKillLeaves) {
  config(5, 10);  // its change was cut short, and version 10 went to FEC 3
  expectNoteOnly("version_given_again", "1 row (FEC 5) whose change was cut short");
}

TEST_F(StateRulesTest, ADeletedRowThatNoLogRowSpeaksForIsAnOrphanAndNoFinding) {
  config(5, 6, true);
  expectNoteOnly("orphan", "1 deleted row (FEC 5) without a log row");
  mendAll();
  EXPECT_FALSE(rows_.units[0]->contains(5));
  EXPECT_EQ(rows_.units[0]->size(), 4U);
  EXPECT_THAT(notes(), IsEmpty());
}

TEST_F(StateRulesTest, ADeletedRowWhoseVersionWentToAnotherEntryIsAnOrphan) {
  config(5, 10, true);
  expectNoteOnly("orphan");
}

TEST_F(StateRulesTest, ManyOrphansAreOneNoteWithAFewExamples) {
  for (std::uint32_t fecId = 100; fecId < 120; ++fecId) {
    config(fecId, 3, true);
  }
  ASSERT_THAT(notes(), ElementsAre("orphan"));
  const Judgement note = Tools::judge(rows_).front();
  EXPECT_THAT(note.text, HasSubstr("20 deleted rows (FEC "));
  EXPECT_THAT(note.text, HasSubstr(", ...)"));
  EXPECT_EQ(note.mends.size(), 20U);
}

TEST_F(StateRulesTest, WithoutALogNoDeletionIsAnOrphan) {
  rows_.log.reset();
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

// ---- log rows

TEST_F(StateRulesTest, ALogRowOneAheadOfTheScratchpadIsWhatAKillLeaves) {
  config(5, 11);
  log(11, LogRow::kEntryWritten, entry(5));
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(), ElementsAre("unlogged_change", "unfinished_log_row"));
}

TEST_F(StateRulesTest, ALogRowOneAheadMayContradictTheConfigurationAfterTwoKills) {
  config(5, 11, false, 2);
  log(11, LogRow::kEntryWritten, entry(5, 1));
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(StateRulesTest, ALogRowTwoAheadIsAFinding) {
  config(3, 10);
  log(12, LogRow::kEntryWritten, entry(3));
  const auto all = findings();
  ASSERT_THAT(all, Not(IsEmpty()));
  EXPECT_EQ(all.front(), "above_log");
  mendAll();
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(StateRulesTest, ALogRowMayBeOlderThanTheConfigurationRow) {
  config(1, 10, false, 9);
  log(10, LogRow::kEntryWritten, entry(1, 9));
  rows_.units[0]->erase(3);
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(StateRulesTest, AnEntryThatDiffersFromItsLogRowIsAFinding) {
  config(1, 8, false, 99);
  expectFinding("log_and_configuration", "the entries of FEC 1 in log and configuration differ");
  EXPECT_TRUE(rows_.units[0]->contains(1)) << "the configuration counts";
}

TEST_F(StateRulesTest, ADeletionOnOneSideOnlyIsAFinding) {
  config(2, 9, false);
  expectFinding("log_and_configuration", "FEC 2 is deleted in log or configuration");
}

TEST_F(StateRulesTest, AConfigurationRowThatIsOlderThanItsLogRowIsAFinding) {
  config(3, 4);
  expectFinding("log_and_configuration", "FEC 3 has the older version 4");
}

TEST_F(StateRulesTest, AConfigurationRowThatIsGoneWithoutAnyDeletionIsAFinding) {
  rows_.units[0]->erase(1);
  expectFinding("log_and_configuration", "version 8, unit 0: FEC 1 has no configuration row");
}

TEST_F(StateRulesTest, AConfigurationRowMayBeGoneWhenALaterLogRowHasBeenCleanedUp) {
  rows_.units[0]->erase(1);
  rows_.units[0]->erase(2);
  rows_.log->erase(9);  // it was the deletion of 1, for all that is known
  expectNoteOnly("unfinished_cleanup", "1 version without a row above the applied version 7");
}

TEST_F(StateRulesTest, ATableDeletionLeavesMarkedAndNewerRowsOnly) {
  log(8, LogRow::kTableDeleted);
  config(1, 8, true);
  config(4, 8, true);
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

TEST_F(StateRulesTest, ARowThatATableDeletionHasLeftOutIsAFinding) {
  log(8, LogRow::kTableDeleted);
  config(1, 8, true);
  expectFinding("log_and_configuration", "the table was deleted, but it has a row of version 5");
}

TEST_F(StateRulesTest, ARowThatATableDeletionHasNotMarkedIsAFinding) {
  log(8, LogRow::kTableDeleted);
  config(4, 8, true);
  expectFinding("log_and_configuration", "a row of that version is not marked");
}

TEST_F(StateRulesTest, ATableDeletionIsOfItsUnitAlone) {
  rows_.units[3].emplace();
  config(4, 5, false, 0, 3);
  log(9, LogRow::kTableDeleted, {}, 7);
  rows_.units[7].emplace();
  config(2, 9, true, 0, 7);
  rows_.units[0]->erase(2);
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

TEST_F(StateRulesTest, ALogRowOfAUnitWithoutATableIsAFinding) {
  log(9, LogRow::kEntryWritten, entry(2), 5);
  rows_.units[0]->erase(2);
  expectFinding("missing_table", "unit 5 has no configuration table, but the log has 1 row of it");
}

TEST_F(StateRulesTest, AnUnknownOperationIsAFinding) {
  log(8, 3);
  expectFinding("implausible_row", "version 8 has operation 3");
}

TEST_F(StateRulesTest, LogRowsThatAreAppliedWaitForTheNextStart) {
  config(4, 7);
  log(7, LogRow::kEntryWritten, entry(4));
  expectNoteOnly("applied_log_row", "1 row (version 7) not above the applied version 7");
  mendAll();
  EXPECT_FALSE(rows_.log->contains(7));
}

TEST_F(StateRulesTest, WhatIsCleanedAndNotRecordedAsAppliedIsWhatAKillLeaves) {
  rows_.log->erase(8);
  rows_.log->erase(9);
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(), ElementsAre("orphan", "unfinished_cleanup"));
}

// ---- the group

TEST_F(StateRulesTest, ALoggedVersionThatIsNotAnnouncedIsWhatAKillLeaves) {
  rows_.group->erase(20);
  expectNoteOnly("unannounced", "1 change (version 10) logged but not announced");
}

TEST_F(StateRulesTest, AGroupRowOneAheadOfItsScratchpadIsWhatAKillLeaves) {
  rows_.groupScratchpad = 19;
  expectNoteOnly("unfinished_group_row");
}

TEST_F(StateRulesTest, AGroupRowTwoAheadOfItsScratchpadIsAFinding) {
  rows_.group->erase(20);
  group(22, 10);
  expectFinding("above_group_log", "a row has sequence 22, but the last is 20");
  EXPECT_EQ(rows_.groupScratchpad, 22U);
}

TEST_F(StateRulesTest, AnAnnouncementOfWhatIsNotLoggedIsAFinding) {
  rows_.groupScratchpad = 21;
  group(21, 11);
  expectFinding("above_log", "sequence 21 has version 11, but the log's last is 10");
}

TEST_F(StateRulesTest, VersionsOfATableRiseInTheGroupLog) {
  rows_.groupScratchpad = 21;
  group(21, 9);
  expectFinding("group_order", "sequence 21 has version 9 of table 03:01:0805");
}

TEST_F(StateRulesTest, TablesOfAGroupCountEachForItself) {
  rows_.groupScratchpad = 22;
  group(21, 1, kOtherTable);
  group(22, 500, kOtherTable);
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
  group(22, 1, kOtherTable);
  expectFinding("group_order", "table 03:01:0777");
}

TEST_F(StateRulesTest, AnOperationOfSeveralGroupRowsIsClean) {
  announceInThreeRows();
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

TEST_F(StateRulesTest, SeveralRowsOfOneOperationAheadOfTheScratchpadAreWhatAKillLeaves) {
  announceInThreeRows();
  rows_.groupScratchpad = 19;
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(),
              ElementsAre("unfinished_group_row", "unfinished_group_row", "unfinished_group_row"));
}

TEST_F(StateRulesTest, ARowOfAnotherOperationTwoAheadOfTheScratchpadIsAFinding) {
  announceInThreeRows();
  rows_.groupScratchpad = 20;
  rows_.group->erase(22);
  group(22, 1, kOtherTable);
  EXPECT_THAT(findings(), ElementsAre("above_group_log"));
}

TEST_F(StateRulesTest, AnOperationWhoseRowsWereCutShortIsNotAnnounced) {
  announceInThreeRows();
  rows_.group->erase(22);
  rows_.groupScratchpad = 19;
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(), ElementsAre("unfinished_group_row", "unfinished_group_row",
                                   "cut_short_announcement", "unannounced"));
}

TEST_F(StateRulesTest, AnOperationWhoseRowsWereCutShortBeforeAnotherIsNotAnnounced) {
  announceInThreeRows();
  rows_.group->erase(22);
  group(22, 1, kOtherTable);
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(notes(), ElementsAre("cut_short_announcement", "unannounced"));
}

TEST_F(StateRulesTest, RowsOfAnOperationThatHasLostItsFirstAreFindingsAndAreDropped) {
  announceInThreeRows();
  rows_.group->erase(20);
  EXPECT_THAT(findings(), ElementsAre("broken_announcement", "broken_announcement"));
  mendAll();
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_EQ(rows_.group->size(), 2U);
}

TEST_F(StateRulesTest, RowsThatAReportHasNotDroppedYetMayLackTheirFirst) {
  announceInThreeRows();
  rows_.group->erase(18);
  rows_.group->erase(19);
  rows_.group->erase(20);
  rows_.log->clear();
  rows_.units[0]->erase(2);
  (*rows_.applied)[kTable] = 10;
  expectNoteOnly("applied_group_row",
                 "2 rows (sequence 21, sequence 22) whose version has been applied");
}

TEST_F(StateRulesTest, AVersionThatIsAnnouncedTwiceIsAFinding) {
  rows_.groupScratchpad = 21;
  group(21, 10);
  expectFinding("group_order", "sequence 21 has version 10 of table 03:01:0805");
}

TEST_F(StateRulesTest, AGroupRowWithoutAVersionIsAFinding) {
  group(20, 0);
  EXPECT_THAT(findings(), ElementsAre("implausible_row"));
}

TEST_F(StateRulesTest, GroupRowsThatAreAppliedWaitForTheNextReport) {
  group(17, 7);
  expectNoteOnly("applied_group_row");
  mendAll();
  EXPECT_FALSE(rows_.group->contains(17));
}

TEST_F(StateRulesTest, AGroupLogThatBeganAnewIsAFinding) {
  rows_.group->clear();
  rows_.groupScratchpad = 0;
  const auto all = findings();
  EXPECT_THAT(all, ElementsAre("lost_group_log"));
  mendAll();
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_EQ(rows_.groupScratchpad, 10U);
}

TEST_F(StateRulesTest, TheFirstChangeOfAllMayBeCutShortBeforeTheGroupLog) {
  rows_ = StateRows();
  rows_.units[0].emplace();
  rows_.log.emplace();
  rows_.group.emplace();
  rows_.applied.emplace();
  rows_.logScratchpad = 1;
  rows_.groupScratchpad = 0;
  config(1, 1);
  log(1, LogRow::kEntryWritten, entry(1));
  expectNoteOnly("unannounced");
}

TEST_F(StateRulesTest, AnAppliedVersionAboveTheLogIsAFinding) {
  (*rows_.applied)[kTable] = 11;
  const auto all = findings();
  EXPECT_THAT(all, ElementsAre("above_log"));
  mendAll();
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_EQ(rows_.logScratchpad, 11U);
}

TEST_F(StateRulesTest, AnAppliedVersionAtTheLogsLastIsClean) {
  (*rows_.applied)[kTable] = 10;
  rows_.log->clear();
  rows_.group->clear();
  rows_.units[0]->erase(2);
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

TEST_F(StateRulesTest, WithoutAnyReportNothingIsAppliedAndNothingMissing) {
  rows_.applied->clear();
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

TEST_F(StateRulesTest, UnitsThatCannotBeReadAreLeftOut) {
  rows_.units[0].reset();
  EXPECT_THAT(Tools::judge(rows_), IsEmpty());
}

}  // namespace
