// The group log: order and sequences, what is pending a table, the applied versions, and all of it
// across a restart on the same files, damaged ones included.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Glint/Guarded.h"
#include "Pell/Exceptions.h"
#include "TableFile.h"
#include "testing/LeakCheck.h"
#include "testing/TemporaryRoot.h"

namespace {

using Asic::GroupLog;
using Asic::GroupLogRow;
using Asic::GroupVersionRow;
using Asic::LogVersion;
using Asic::SwTableId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr SwTableId kTableA{0x03010805};
constexpr SwTableId kTableB{0x03010806};

using Row = std::tuple<std::uint64_t, SwTableId, std::uint64_t>;  // sequence, table, version

class GroupLogTest : public testing_support::LeakCheckedTest {
 protected:
  GroupLogTest() { start(); }

  void start() {
    entityManager_ = Zev::makeObject<Vanta::EntityManager>(root_.path());
    log_ = Zev::makeObject<GroupLog>(entityManager_, "agent", "group");
  }
  void stop() {
    log_ = nullptr;
    entityManager_ = nullptr;
  }
  void restart() {
    stop();
    start();
  }

  void add(SwTableId table, std::uint64_t version) {
    log_->addGroupLogEntry(table, LogVersion(version), nullptr);
  }
  void apply(SwTableId table, std::uint64_t version) {
    log_->tableVersionIs({table, LogVersion(version)});
  }
  Glint::GlintMap<GroupLogRow>& logRows() const {
    return dynamic_cast<Glint::GlintMap<GroupLogRow>&>(log_->logMap());
  }
  // In group order.
  std::vector<Row> rows() const {
    std::vector<Row> found;
    EXPECT_TRUE(Glint::walkOverDamage(logRows(), [&](const GroupLogRow& row) {
      found.emplace_back(row.sequence(), row.tableVersion().tableId(),
                         row.tableVersion().logVersion().value());
    }));
    std::sort(found.begin(), found.end());
    return found;
  }

  // Flips one bit in the live copy of the row that stands in the slot, in the file.
  static void damage(const std::string& file, const glint_test::Offsets& offsets,
                     std::uint32_t slot) {
    const Glint::Seq seq(glint_test::wordAt<std::uint64_t>(file, offsets.slot(slot)));
    ASSERT_TRUE(seq.live());
    glint_test::flipBit(file, 8 * (offsets.row(slot, seq.copy()) + 8));
  }
  static void damageVersionRow(const std::string& file) {
    using Traits = Glint::RowTraits<GroupVersionRow>;
    constexpr std::uint32_t kCapacity = Asic::GroupVersionsGlint::kCapacity;
    damage(file, {kCapacity, Traits::physicalSlots(kCapacity), sizeof(GroupVersionRow)}, 0);
  }
  static void damageLogRow(const std::string& file, std::uint32_t slot) {
    using Traits = Glint::RowTraits<GroupLogRow>;
    constexpr std::uint32_t kCapacity = Asic::GroupLogGlint::kCapacity;
    damage(file, {kCapacity, Traits::physicalSlots(kCapacity), sizeof(GroupLogRow)}, slot);
  }

  testing_support::TemporaryRoot root_;
  Pell::Ptr<Vanta::EntityManager> entityManager_;
  Pell::Ptr<GroupLog> log_;
};

TEST_F(GroupLogTest, ANewLogHoldsNothing) {
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion());
}

TEST_F(GroupLogTest, RowsOfAllTablesStandInTheOrderOfTheirAnnouncement) {
  add(kTableB, 7);
  add(kTableA, 1);
  add(kTableB, 8);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableB, 7}, Row{2, kTableA, 1}, Row{3, kTableB, 8}));
}

TEST_F(GroupLogTest, ARowCarriesTheVersionsThatItNeeds) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  needed->add({kTableB, LogVersion(0x123456789ABCDEF0)});
  needed->add({SwTableId(9), LogVersion(2)});
  log_->addGroupLogEntry(kTableA, LogVersion(5), needed);
  add(kTableA, 6);
  const GroupLogRow first = logRows().row(1).value();
  ASSERT_EQ(first.neededCount(), 2U);
  EXPECT_EQ(first.needed(0), Asic::TableVersion(kTableB, LogVersion(0x123456789ABCDEF0)));
  EXPECT_EQ(first.needed(1), Asic::TableVersion(SwTableId(9), LogVersion(2)));
  EXPECT_EQ(logRows().row(2).value().neededCount(), 0U);
}

TEST_F(GroupLogTest, ARowHoldsAsManyNeededVersionsAsAnOperationCanHave) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  for (std::uint32_t i = 0; i < Asic::NeededEntry::kMaxTables; ++i) {
    needed->add({SwTableId(i), LogVersion(i + 100)});
  }
  log_->addGroupLogEntry(kTableA, LogVersion(1), needed);
  const GroupLogRow row = logRows().row(1).value();
  ASSERT_EQ(row.neededCount(), Asic::NeededEntry::kMaxTables);
  for (std::uint32_t i = 0; i < row.neededCount(); ++i) {
    EXPECT_EQ(row.needed(i), Asic::TableVersion(SwTableId(i), LogVersion(i + 100)));
  }
}

TEST_F(GroupLogTest, AReportDropsTheRowsOfItsTableUpToItsVersion) {
  for (std::uint64_t version = 1; version <= 3; ++version) {
    add(kTableA, version);
    add(kTableB, version);
  }
  apply(kTableA, 2);
  EXPECT_THAT(rows(), ElementsAre(Row{2, kTableB, 1}, Row{4, kTableB, 2}, Row{5, kTableA, 3},
                                  Row{6, kTableB, 3}));
  EXPECT_TRUE(log_->hasTableVersion(kTableA));
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(2));
  EXPECT_FALSE(log_->hasTableVersion(kTableB));
  apply(kTableB, 9);
  EXPECT_THAT(rows(), ElementsAre(Row{5, kTableA, 3}));
}

TEST_F(GroupLogTest, AppliedVersionsNeverFall) {
  add(kTableA, 4);
  add(kTableA, 5);
  apply(kTableA, 4);
  apply(kTableA, 3);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(4));
  apply(kTableA, 4);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(4));
  EXPECT_THAT(rows(), ElementsAre(Row{2, kTableA, 5}));
  apply(kTableA, 5);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(5));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(GroupLogTest, VersionZeroIsAVersionToo) {
  apply(kTableA, 0);
  EXPECT_TRUE(log_->hasTableVersion(kTableA));
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(0));
}

TEST_F(GroupLogTest, AnAnnouncementAndAReportAreEachPublishedAfterTheyStand) {
  std::vector<std::string> heard;
  Pell::Subscriber subscriber(
      [&](Pell::Publisher*, Pell::Subscriber*, short attribute, const void*, const void*) {
        heard.push_back(std::to_string(attribute) + ":" + std::to_string(rows().size()) + ":" +
                        std::to_string(log_->tableVersion(kTableA).value()));
      });
  log_->publisher().subscriberAdd(subscriber);
  add(kTableA, 1);
  apply(kTableA, 1);
  apply(kTableA, 0);
  log_->publisher().subscriberRemove(subscriber);
  static_assert(GroupLog::kGroupLogAttribute == 2 && GroupLog::kAppliedVersionsAttribute == 3);
  EXPECT_THAT(heard, ElementsAre("2:1:0", "3:0:1"));
  EXPECT_EQ(log_->fwkType().attribute("groupLog")->id, 2);
  EXPECT_EQ(log_->fwkType().attribute("appliedVersions")->id, 3);
}

// Restarts.

TEST_F(GroupLogTest, SequencesGoOnAcrossARestart) {
  add(kTableA, 1);
  add(kTableB, 1);
  restart();
  add(kTableA, 2);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{2, kTableB, 1}, Row{3, kTableA, 2}));
}

TEST_F(GroupLogTest, SequencesGoOnAcrossARestartAlsoWhenEveryRowHasGone) {
  add(kTableA, 1);
  add(kTableA, 2);
  apply(kTableA, 2);
  restart();
  add(kTableA, 3);
  EXPECT_THAT(rows(), ElementsAre(Row{3, kTableA, 3}));
}

TEST_F(GroupLogTest, ARowThatWasWrittenBeforeItsSequenceWasRecordedIsNotOverwritten) {
  add(kTableA, 1);
  add(kTableA, 2);
  logRows().control().scratchpadIs(1);  // the agent died before it recorded 2
  restart();
  add(kTableA, 3);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{2, kTableA, 2}, Row{3, kTableA, 3}));
}

TEST_F(GroupLogTest, WhatWasPendingBeforeARestartGoesWhenItIsApplied) {
  for (std::uint64_t version = 1; version <= 20; ++version) {
    add(kTableA, version);
    add(kTableB, version);
  }
  apply(kTableA, 3);
  restart();
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(3));
  EXPECT_EQ(rows().size(), 37U);
  apply(kTableA, 19);
  apply(kTableB, 20);
  EXPECT_THAT(rows(), ElementsAre(Row{39, kTableA, 20}));
}

TEST_F(GroupLogTest, RowsThatWereAppliedBeforeAKillGoWithTheNextReport) {
  add(kTableA, 1);
  add(kTableA, 2);
  const GroupLogRow killedBeforeItWent = logRows().row(1).value();
  apply(kTableA, 1);
  logRows().rowIs(killedBeforeItWent);
  restart();
  EXPECT_EQ(rows().size(), 2U);
  apply(kTableA, 1);
  EXPECT_THAT(rows(), ElementsAre(Row{2, kTableA, 2}));
}

// Damage.

TEST_F(GroupLogTest, AnAppliedVersionThatIsDamagedWhileMappedThrowsUntilItIsReported) {
  apply(kTableA, 7);
  damageVersionRow(log_->versionsMap().filePath());
  EXPECT_THROW((void)log_->hasTableVersion(kTableA), Pell::CorruptionDetectedException);
  EXPECT_THROW((void)log_->tableVersion(kTableA), Pell::CorruptionDetectedException);
  log_->versionsMap().doCorruptionDetected("damaged");
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 1U);
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
}

TEST_F(GroupLogTest, AReportReplacesAnAppliedVersionThatIsDamaged) {
  add(kTableA, 7);
  add(kTableA, 8);
  apply(kTableA, 7);
  damageVersionRow(log_->versionsMap().filePath());
  apply(kTableA, 8);
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 1U);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(8));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(GroupLogTest, AnAppliedVersionThatIsDamagedWhileUnmountedCountsAsAbsent) {
  apply(kTableA, 7);
  const std::string file = log_->versionsMap().filePath();
  stop();
  damageVersionRow(file);
  start();
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 1U);
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
}

TEST_F(GroupLogTest, ADamagedRowCostsThatRowAloneAcrossARestart) {
  for (std::uint64_t version = 1; version <= 5; ++version) {
    add(kTableA, version);
  }
  const std::string file = log_->logMap().filePath();
  stop();
  damageLogRow(file, 2);
  start();
  EXPECT_EQ(log_->logMap().corruptionCount(), 1U);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{2, kTableA, 2}, Row{4, kTableA, 4},
                                  Row{5, kTableA, 5}));
  apply(kTableA, 5);
  EXPECT_THAT(rows(), IsEmpty());
  add(kTableA, 6);
  EXPECT_THAT(rows(), ElementsAre(Row{6, kTableA, 6}));
}

TEST_F(GroupLogTest, ARowThatIsDamagedWhileMappedDoesNotStopTheReport) {
  for (std::uint64_t version = 1; version <= 3; ++version) {
    add(kTableA, version);
  }
  damageLogRow(log_->logMap().filePath(), 1);
  apply(kTableA, 3);
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(3));
}

// What the log stands in.

TEST_F(GroupLogTest, TheRowsHaveFixedSizesAndTheTablesTheirNamesAndCapacities) {
  EXPECT_EQ(sizeof(GroupLogRow), 120U);
  EXPECT_EQ(sizeof(GroupVersionRow), 16U);
  EXPECT_EQ(log_->logMap().filePath(), root_.path() + "/agent.group.grouplog.table");
  EXPECT_EQ(log_->versionsMap().filePath(), root_.path() + "/agent.group.applied.table");
  EXPECT_STREQ(Asic::GroupLogGlint::kCollectionName, "groupLog");
  EXPECT_STREQ(Asic::GroupVersionsGlint::kCollectionName, "appliedVersions");
  EXPECT_EQ(log_->logMap().capacity(), 100000U);
  EXPECT_EQ(log_->versionsMap().capacity(), 64U);
}

TEST_F(GroupLogTest, TheBytesOfARowStandAtTheirOffsets) {
  const auto needed = Zev::makeObject<Asic::NeededEntry>();
  needed->add({kTableB, LogVersion(0x1122334455667788)});
  needed->add({SwTableId(0x0A0B0C0D), LogVersion(1)});
  const GroupLogRow row(0x0102030405060708, {kTableA, LogVersion(0x1112131415161718)}, needed);
  const auto* bytes = static_cast<const char*>(static_cast<const void*>(&row));
  const auto word32 = [&](std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes + at, sizeof word);
    return word;
  };
  const auto word64 = [&](std::size_t at) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes + at, sizeof word);
    return word;
  };
  EXPECT_EQ(word64(0), 0x0102030405060708U);
  EXPECT_EQ(word64(8), 0x1112131415161718U);
  EXPECT_EQ(word32(16), 0x03010805U);
  EXPECT_EQ(word32(20), 2U);
  EXPECT_EQ(word32(24), 0x03010806U);
  EXPECT_EQ(word64(28), 0x1122334455667788U);
  EXPECT_EQ(word32(36), 0x0A0B0C0DU);
  EXPECT_EQ(word64(40), 1U);
  for (std::size_t at = 48; at < sizeof row; ++at) {
    EXPECT_EQ(bytes[at], 0) << at;
  }
}

}  // namespace
