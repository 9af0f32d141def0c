// SPDX-License-Identifier: Apache-2.0

// The group log: order and sequences, what is pending a table, the applied versions, and all of it
// across a restart on the same files, damaged ones included.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Glint/Guarded.h"
#include "Pell/Exceptions.h"
#include "Zev/WorkMeter.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::GroupLog;
using Asic::GroupLogRow;
using Asic::LogVersion;
using Asic::SwTableId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr SwTableId kTableA{0x03010805};
constexpr SwTableId kTableB{0x03010806};

using Row = std::tuple<std::uint64_t, SwTableId, std::uint64_t>;  // sequence, table, version
using Marked = std::pair<std::uint32_t, std::uint32_t>;           // marks, count

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
  static Pell::Ptr<Asic::NeededEntry> needs(std::uint32_t tables) {
    auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (std::uint32_t i = 0; i < tables; ++i) {
      needed->add({SwTableId(i), LogVersion(i + 100)});
    }
    return needed;
  }
  // Of the rows of one operation that needs that many tables.
  std::vector<Marked> marksAndCounts(std::uint32_t tables) {
    const std::uint64_t before = logRows().control().scratchpad();
    log_->addGroupLogEntry(kTableA, LogVersion(before + 1), needs(tables));
    std::vector<Marked> found;
    for (std::uint64_t at = before + 1; at <= logRows().control().scratchpad(); ++at) {
      const GroupLogRow row = logRows().row(at).value();
      found.emplace_back((row.isContinued() ? GroupLogRow::kContinued : 0) |
                             (row.isContinuation() ? GroupLogRow::kContinuation : 0),
                         row.neededCount());
    }
    return found;
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

  template <typename Word>
  static Word wordOf(const GroupLogRow& row, std::size_t at) {
    Word word = 0;
    std::memcpy(&word, static_cast<const char*>(static_cast<const void*>(&row)) + at, sizeof word);
    return word;
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

TEST_F(GroupLogTest, AnOperationThatNeedsMoreThanARowHoldsTakesRowsInARow) {
  constexpr std::uint32_t kFirst = GroupLogRow::kContinued;
  constexpr std::uint32_t kMiddle = GroupLogRow::kContinued | GroupLogRow::kContinuation;
  constexpr std::uint32_t kLast = GroupLogRow::kContinuation;
  EXPECT_THAT(marksAndCounts(0), ElementsAre(Marked{0, 0}));
  EXPECT_THAT(marksAndCounts(7), ElementsAre(Marked{0, 7}));
  EXPECT_THAT(marksAndCounts(8), ElementsAre(Marked{0, 8}));
  EXPECT_THAT(marksAndCounts(9), ElementsAre(Marked{kFirst, 8}, Marked{kLast, 1}));
  EXPECT_THAT(marksAndCounts(16), ElementsAre(Marked{kFirst, 8}, Marked{kLast, 8}));
  EXPECT_THAT(marksAndCounts(17),
              ElementsAre(Marked{kFirst, 8}, Marked{kMiddle, 8}, Marked{kLast, 1}));
}

TEST_F(GroupLogTest, TheRowsOfAnOperationCarryAllThatItNeedsInOrder) {
  log_->addGroupLogEntry(kTableA, LogVersion(5), needs(19));
  std::vector<Asic::TableVersion> found;
  for (std::uint64_t sequence = 1; sequence <= 3; ++sequence) {
    const GroupLogRow row = logRows().row(sequence).value();
    EXPECT_EQ(row.tableVersion(), Asic::TableVersion(kTableA, LogVersion(5)));
    for (std::uint32_t at = 0; at < row.neededCount(); ++at) {
      found.push_back(row.needed(at));
    }
  }
  const auto wanted = needs(19);
  EXPECT_THAT(found, ::testing::ElementsAreArray(wanted->tableVersions()));
  EXPECT_EQ(logRows().control().scratchpad(), 3U);
}

TEST_F(GroupLogTest, TheRowsOfAnOperationCanBeCountedBeforeTheyAreWritten) {
  EXPECT_EQ(GroupLogRow::rowsFor(0), 1U);
  EXPECT_EQ(GroupLogRow::rowsFor(1), 1U);
  EXPECT_EQ(GroupLogRow::rowsFor(8), 1U);
  EXPECT_EQ(GroupLogRow::rowsFor(9), 2U);
  EXPECT_EQ(GroupLogRow::rowsFor(16), 2U);
  EXPECT_EQ(GroupLogRow::rowsFor(17), 3U);
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

TEST_F(GroupLogTest, AppliedVersionsAreComparedWhole) {
  add(kTableA, 0x100000005);
  add(kTableA, 0x200000004);
  add(kTableA, 0x300000003);
  apply(kTableA, 0x200000004);
  EXPECT_THAT(rows(), ElementsAre(Row{3, kTableA, 0x300000003}));
  apply(kTableA, 0x100000009);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(0x200000004)) << "lower, with a higher half";
  apply(kTableA, 0x300000003);
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(0x300000003)) << "higher, with a lower half";
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(GroupLogTest, TablesThatDifferInTheirHighHalvesAloneAreApart) {
  const SwTableId sameLowHalf(kTableA.value() ^ 0x00010000);
  add(kTableA, 1);
  add(sameLowHalf, 1);
  apply(sameLowHalf, 1);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}));
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
}

TEST_F(GroupLogTest, TheRowsOfAnOperationGoTogetherWhenItIsApplied) {
  log_->addGroupLogEntry(kTableA, LogVersion(1), needs(17));
  log_->addGroupLogEntry(kTableB, LogVersion(1), needs(9));
  log_->addGroupLogEntry(kTableA, LogVersion(2), needs(9));
  apply(kTableA, 1);
  EXPECT_THAT(rows(), ElementsAre(Row{4, kTableB, 1}, Row{5, kTableB, 1}, Row{6, kTableA, 2},
                                  Row{7, kTableA, 2}));
  apply(kTableB, 1);
  apply(kTableA, 2);
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

TEST_F(GroupLogTest, ARowThatAKillKeptFromTheScratchpadIsAnnouncedByTheNextStart) {
  add(kTableA, 1);
  add(kTableA, 2);
  logRows().control().scratchpadIs(1);  // the agent died before it raised it
  restart();
  EXPECT_EQ(logRows().control().scratchpad(), 2U);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{2, kTableA, 2}));
}

TEST_F(GroupLogTest, RowsOfOneOperationThatWerePendingBeforeARestartGoTogether) {
  log_->addGroupLogEntry(kTableA, LogVersion(1), needs(17));
  log_->addGroupLogEntry(kTableA, LogVersion(2), needs(9));
  restart();
  apply(kTableA, 1);
  EXPECT_THAT(rows(), ElementsAre(Row{4, kTableA, 2}, Row{5, kTableA, 2}));
  add(kTableA, 3);
  apply(kTableA, 2);
  EXPECT_THAT(rows(), ElementsAre(Row{6, kTableA, 3}));
}

TEST_F(GroupLogTest, RowsOfAnOperationThatAKillCutShortStayUntilItsVersionIsApplied) {
  add(kTableA, 1);
  log_->addGroupLogEntry(kTableA, LogVersion(2), needs(17));
  logRows().rowDel(4);
  logRows().control().scratchpadIs(1);  // the agent died before it wrote the third row
  restart();
  add(kTableA, 3);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{2, kTableA, 2}, Row{3, kTableA, 2},
                                  Row{4, kTableA, 3}));
  EXPECT_EQ(logRows().control().scratchpad(), 4U);
  apply(kTableA, 2);
  EXPECT_THAT(rows(), ElementsAre(Row{4, kTableA, 3}));
}

// What it costs, in rows touched.

TEST_F(GroupLogTest, AReportTouchesTheRowsThatItDropsAndNoOthers) {
  for (std::uint64_t version = 1; version <= 1000; ++version) {
    add(kTableA, version);
    add(kTableB, version);
  }
  for (const std::uint64_t dropped : {0U, 1U, 100U, 899U}) {
    const std::uint64_t applied = log_->tableVersion(kTableA).value() + dropped;
    const Zev::WorkBudget work(0);
    apply(kTableA, applied);
    EXPECT_EQ(work.used(), dropped + 1) << "and the applied version, written";
  }
}

TEST_F(GroupLogTest, AStartLooksAtEachSlotInUseOnce) {
  constexpr std::uint32_t kRows = 1000;
  constexpr std::uint64_t kSlotsInUse = 1024 + 128;  // they come in chunks; both tables have one
  for (std::uint32_t i = 0; i < kRows; ++i) {
    add(SwTableId(i), 1);
  }
  stop();
  const Zev::WorkBudget work(0);
  start();
  const std::uint64_t used = work.used();
  EXPECT_GE(used, kRows);
  EXPECT_LE(used, kSlotsInUse);
}

// Room.

TEST_F(GroupLogTest, RoomIsWhatTheSlotsLeave) {
  constexpr std::uint32_t kSlots = 100000 + 65536 * 16;
  EXPECT_EQ(log_->room(), kSlots);
  add(kTableA, 1);
  EXPECT_EQ(log_->room(), kSlots - 1);
  log_->addGroupLogEntry(kTableA, LogVersion(2), needs(17));
  EXPECT_EQ(log_->room(), kSlots - 4);
  apply(kTableA, 2);
  EXPECT_EQ(log_->room(), kSlots);
}

TEST_F(GroupLogTest, RequestsFitBelowTheNominalCapacityAndNotAtIt) {
  const testing_support::TraceRecorder traces({"GroupLog"}, 1U << 3);
  constexpr std::uint32_t kCapacity = Asic::GroupLogGlint::kCapacity;
  log_->addGroupLogEntry(kTableA, LogVersion(1), needs(8 * (kCapacity - 2)));
  EXPECT_TRUE(log_->requestsFit());
  add(kTableB, 1);
  ASSERT_EQ(log_->logMap().rowCount(), kCapacity - 1);
  EXPECT_TRUE(log_->requestsFit());
  EXPECT_THAT(traces.texts(), IsEmpty());
  add(kTableB, 2);
  EXPECT_FALSE(log_->requestsFit());
  EXPECT_THAT(traces.lines(), ElementsAre("3 GroupLog::addGroupLogEntry full: 100000 rows; "
                                          "requests are held back"));
  add(kTableB, 3);
  EXPECT_FALSE(log_->requestsFit());
  EXPECT_EQ(traces.texts().size(), 1U) << "said once";
  apply(kTableB, 1);
  EXPECT_FALSE(log_->requestsFit());
  apply(kTableB, 2);
  EXPECT_TRUE(log_->requestsFit());
}

// A client cannot fill the log: one that asks before each commit is stopped after the operation
// that passes the bound, however many versions it needs, and there is room left for a re-drive.
TEST_F(GroupLogTest, RequestsThatNeedThousandsOfTablesNeverFillTheSlots) {
  const auto needed = needs(65536);
  std::uint64_t committed = 0;
  while (committed < 100000 && log_->requestsFit()) {
    log_->addGroupLogEntry(kTableA, LogVersion(++committed), needed);
  }
  EXPECT_EQ(committed, 13U) << "each takes 8192 rows";
  EXPECT_GE(log_->room(), 16U * 65536U - 8192U);
  apply(kTableA, 13);
  EXPECT_TRUE(log_->requestsFit());
}

TEST_F(GroupLogTest, AnOperationFitsWhenAllOfItsRowsDo) {
  const auto many = needs(65536);
  std::uint64_t version = 0;
  while (log_->room() > 2) {
    log_->addGroupLogEntry(kTableA, LogVersion(++version), log_->room() >= 8194 ? many : nullptr);
  }
  EXPECT_TRUE(log_->hasRoomFor(nullptr));
  EXPECT_TRUE(log_->hasRoomFor(needs(16)));
  EXPECT_FALSE(log_->hasRoomFor(needs(17)));
  add(kTableA, ++version);
  EXPECT_TRUE(log_->hasRoomFor(needs(8)));
  EXPECT_FALSE(log_->hasRoomFor(needs(9)));
  add(kTableA, ++version);
  EXPECT_FALSE(log_->hasRoomFor(nullptr));
}

// What has been announced.

TEST_F(GroupLogTest, AnAnnouncementIsAnnouncedUpToItsVersion) {
  add(kTableA, 5);
  EXPECT_TRUE(log_->isAnnounced({kTableA, LogVersion(4)}));
  EXPECT_TRUE(log_->isAnnounced({kTableA, LogVersion(5)}));
  EXPECT_FALSE(log_->isAnnounced({kTableA, LogVersion(6)}));
  EXPECT_FALSE(log_->isAnnounced({kTableB, LogVersion(1)}));
  EXPECT_TRUE(log_->isAnnounced({kTableB, LogVersion(0)}));
}

TEST_F(GroupLogTest, TheLastAnnouncedVersionIsToldOfEachTable) {
  EXPECT_EQ(log_->announced(kTableA), LogVersion(0));
  add(kTableA, 5);
  EXPECT_EQ(log_->announced(kTableA), LogVersion(5));
  EXPECT_EQ(log_->announced(kTableB), LogVersion(0));
}

TEST_F(GroupLogTest, WhatIsAnnouncedNeverFalls) {
  log_->announcedIs({kTableA, LogVersion(7)});
  add(kTableA, 5);
  apply(kTableA, 4);
  EXPECT_TRUE(log_->isAnnounced({kTableA, LogVersion(7)}));
  EXPECT_FALSE(log_->isAnnounced({kTableA, LogVersion(8)}));
}

TEST_F(GroupLogTest, RowsOfSeveralTablesAreEachAnnouncedAfterARestart) {
  add(kTableA, 5);
  add(kTableB, 7);
  add(kTableA, 6);
  restart();
  EXPECT_TRUE(log_->isAnnounced({kTableA, LogVersion(6)}));
  EXPECT_FALSE(log_->isAnnounced({kTableA, LogVersion(7)}));
  EXPECT_TRUE(log_->isAnnounced({kTableB, LogVersion(7)}));
  EXPECT_FALSE(log_->isAnnounced({kTableB, LogVersion(8)}));
}

TEST_F(GroupLogTest, CallsAreTracedUnderTheClassesName) {
  testing_support::TraceRecorder traces({"GroupLog"});
  add(kTableA, 5);
  apply(kTableA, 5);
  log_->announcedIs({kTableA, LogVersion(6)});
  EXPECT_THAT(
      traces.lines(),
      ElementsAre("8 GroupLog::addGroupLogEntry tableId: 03:01:0805 version: 5 neededEntry: null",
                  "8 GroupLog::tableVersionIs applied: 03:01:0805@5",
                  "8 GroupLog::announcedIs handedOut: 03:01:0805@6"));
  traces.clear();
  apply(kTableA, 4);
  EXPECT_THAT(traces.lines(3), ElementsAre("3 GroupLog::tableVersionIs applied: 03:01:0805@4 is "
                                           "below 03:01:0805@5 on record"));
  traces.clear();
  restart();
  EXPECT_THAT(traces.lines(), ElementsAre("2 GroupLog::GroupLog rows: 0 lastSequence: 1"));
}

TEST_F(GroupLogTest, WhatBecomesOfRowsIsTracedUnderAHandleOfItsOwn) {
  testing_support::TraceRecorder traces({"GroupLogRows"});
  const std::uint32_t room = log_->room();
  log_->addGroupLogEntry(kTableA, LogVersion(5), needs(9));
  add(kTableB, 1);
  EXPECT_THAT(traces.lines(),
              ElementsAre("9 GroupLog::addRow row: 1 added: 03:01:0805@5",
                          "9 GroupLog::addRow row: 2 added: 03:01:0805@5",
                          fmt::format("8 GroupLog::addGroupLogEntry announced: 03:01:0805@5 "
                                      "lastSequence: 2 room: {}",
                                      room - 2),
                          "9 GroupLog::addRow row: 3 added: 03:01:0806@1",
                          fmt::format("8 GroupLog::addGroupLogEntry announced: 03:01:0806@1 "
                                      "lastSequence: 3 room: {}",
                                      room - 3)));
  traces.clear();
  apply(kTableA, 4);
  apply(kTableA, 5);
  EXPECT_THAT(traces.lines(),
              ElementsAre("8 GroupLog::tableVersionIs applied: 03:01:0805@4 rows waiting: 2",
                          "9 GroupLog::tableVersionIs row: 1 dropped",
                          "9 GroupLog::tableVersionIs row: 2 dropped",
                          "8 GroupLog::tableVersionIs applied: 03:01:0805@5 rows waiting: 0"));
  traces.clear();
  restart();
  EXPECT_THAT(traces.lines(),
              ElementsAre("8 GroupLog::readApplied applied on record: 03:01:0805@5",
                          "9 GroupLog::readPending row: 3 on record: 03:01:0806@1"));
}

TEST_F(GroupLogTest, TheRoomOfRedrivesIsWhatIsFreeBeyondWhatRequestsMayTake) {
  constexpr std::uint32_t kCapacity = Asic::GroupLogGlint::kCapacity;
  const std::uint32_t all = logRows().slotCount() - kCapacity;
  EXPECT_EQ(log_->redriveRoom(), all);
  const auto fillTo = [&](std::uint32_t rows) {
    while (logRows().rowCount() < rows) {
      log_->addGroupLogEntry(kTableA, LogVersion(logRows().rowCount() + 1), nullptr);
    }
  };
  fillTo(kCapacity - 1);
  EXPECT_EQ(log_->redriveRoom(), all);
  fillTo(kCapacity);
  EXPECT_EQ(log_->redriveRoom(), all);
  fillTo(kCapacity + 2);
  EXPECT_EQ(log_->redriveRoom(), all - 2);
  log_->tableVersionIs({kTableA, LogVersion(1)});
  EXPECT_EQ(log_->redriveRoom(), all - 1);
}

TEST_F(GroupLogTest, SequencesGoOnBeyond32Bits) {
  add(kTableA, 1);
  logRows().control().scratchpadIs(0xFFFFFFFF);
  restart();
  add(kTableA, 2);
  add(kTableA, 3);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{0x100000000, kTableA, 2},
                                  Row{0x100000001, kTableA, 3}));
  restart();
  add(kTableA, 4);
  apply(kTableA, 3);
  EXPECT_THAT(rows(), ElementsAre(Row{0x100000002, kTableA, 4}));
}

// Damage.

TEST_F(GroupLogTest, AnAppliedVersionThatIsDamagedWhileMappedThrowsUntilItIsReported) {
  apply(kTableA, 7);
  testing_support::damageRow(log_->versionsMap().filePath(), 0);
  EXPECT_THROW((void)log_->hasTableVersion(kTableA), Pell::CorruptionDetectedException);
  EXPECT_THROW((void)log_->tableVersion(kTableA), Pell::CorruptionDetectedException);
  log_->versionsMap().doCorruptionDetected("damaged");
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 1U);
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
}

TEST_F(GroupLogTest, WhatIsKnownAsAppliedIsWhatWasOnRecordOrReported) {
  EXPECT_EQ(log_->applied(kTableA), LogVersion(0));
  add(kTableA, 7);
  add(kTableB, 9);
  apply(kTableA, 7);
  EXPECT_EQ(log_->applied(kTableA), LogVersion(7));
  EXPECT_EQ(log_->applied(kTableB), LogVersion(0)) << "announced only";
  apply(kTableA, 6);
  EXPECT_EQ(log_->applied(kTableA), LogVersion(7));
  restart();
  EXPECT_EQ(log_->applied(kTableA), LogVersion(7));
  EXPECT_EQ(log_->applied(kTableB), LogVersion(0));
}

TEST_F(GroupLogTest, DamageToARecordTakesNothingBackUntilARestart) {
  add(kTableA, 7);
  apply(kTableA, 7);
  testing_support::damageRow(log_->versionsMap().filePath(), 0);
  EXPECT_EQ(log_->applied(kTableA), LogVersion(7));
  apply(kTableA, 6);
  EXPECT_EQ(log_->applied(kTableA), LogVersion(7));
  restart();
  EXPECT_EQ(log_->applied(kTableA), LogVersion(0));
  EXPECT_FALSE(log_->hasTableVersion(kTableA)) << "the lower version was not recorded either";
}

TEST_F(GroupLogTest, AReportReplacesAnAppliedVersionThatIsDamaged) {
  add(kTableA, 7);
  add(kTableA, 8);
  apply(kTableA, 7);
  testing_support::damageRow(log_->versionsMap().filePath(), 0);
  apply(kTableA, 8);
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 0U) << "nobody had to read it";
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(8));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(GroupLogTest, AnAppliedVersionThatIsDamagedWhileUnmountedCountsAsAbsent) {
  apply(kTableA, 7);
  const std::string file = log_->versionsMap().filePath();
  stop();
  testing_support::damageRow(file, 0);
  start();
  EXPECT_EQ(log_->versionsMap().corruptionCount(), 1U);
  EXPECT_FALSE(log_->hasTableVersion(kTableA));
}

// What a mount finds damaged is out of use behind it. So the other rows are damaged when the last
// mount tells of the first one.
TEST_F(GroupLogTest, DamageThatAStartMeetsIsTracedWithWhatItCosts) {
  add(kTableA, 1);
  add(kTableA, 2);
  apply(kTableB, 7);
  apply(kTableA, 0);
  const std::string versions = log_->versionsMap().filePath();
  const std::string log = log_->logMap().filePath();
  stop();
  testing_support::damageRow(versions, 0);
  const testing_support::TraceRecorder traces({"GlintTable", "GroupLog"}, 1U << 1 | 1U << 3);
  Zev::traceSinkIs([&, recording = Zev::traceSink()](const Zev::TraceRecord& record) {
    if (record.className == "GlintTable") {
      testing_support::damageRow(versions, 1);
      testing_support::damageRow(log, 1);
    } else {
      recording(record);
    }
  });
  start();
  EXPECT_THAT(traces.lines(), ElementsAre("3 GroupLog::readApplied applied versions are damaged; "
                                          "they count as absent",
                                          "3 GroupLog::readPending rows are damaged; what they "
                                          "announced is not known"));
}

TEST_F(GroupLogTest, ADamagedRowCostsThatRowAloneAcrossARestart) {
  for (std::uint64_t version = 1; version <= 5; ++version) {
    add(kTableA, version);
  }
  const std::string file = log_->logMap().filePath();
  stop();
  testing_support::damageRow(file, 2);
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
  testing_support::damageRow(log_->logMap().filePath(), 1);
  apply(kTableA, 3);
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_EQ(log_->tableVersion(kTableA), LogVersion(3));
}

// The applied versions are mounted after the log, and say that one of theirs is damaged.
TEST_F(GroupLogTest, ARowThatIsDamagedWhileTheGroupStartsCostsThatRowAlone) {
  for (std::uint64_t version = 1; version <= 3; ++version) {
    add(kTableA, version);
  }
  apply(kTableB, 7);
  const std::string file = log_->logMap().filePath();
  const std::string versions = log_->versionsMap().filePath();
  stop();
  testing_support::damageRow(versions, 0);
  const testing_support::TraceRecorder levels({"GlintTable"});
  Zev::traceSinkIs([&](const Zev::TraceRecord&) { testing_support::damageRow(file, 1); });
  start();
  EXPECT_EQ(log_->logMap().corruptionCount(), 1U);
  EXPECT_THAT(rows(), ElementsAre(Row{1, kTableA, 1}, Row{3, kTableA, 3}));
  apply(kTableA, 3);
  EXPECT_THAT(rows(), IsEmpty());
}

// What the log stands in.

TEST_F(GroupLogTest, TheRowsHaveFixedSizesAndTheTablesTheirNamesAndCapacities) {
  EXPECT_EQ(log_->logMap().filePath(), root_.path() + "/agent.group.grouplog.table");
  EXPECT_EQ(log_->versionsMap().filePath(), root_.path() + "/agent.group.applied.table");
  const auto header = [](const Glint::GlintMapBase& map) {
    return testing_support::wordAt<Glint::FixedHeader>(map.filePath(), 0);
  };
  EXPECT_STREQ(header(log_->logMap()).collectionName.data(), "groupLog");
  EXPECT_STREQ(header(log_->versionsMap()).collectionName.data(), "appliedVersions");
  EXPECT_EQ(header(log_->logMap()).rowBytes, 120U);
  EXPECT_EQ(header(log_->versionsMap()).rowBytes, 16U);
  EXPECT_EQ(log_->logMap().capacity(), 100000U);
  EXPECT_EQ(log_->versionsMap().capacity(), 64U);
}

TEST_F(GroupLogTest, TheBytesOfARowStandAtTheirOffsets) {
  const std::vector<Asic::TableVersion> needed = {{kTableB, LogVersion(0x1122334455667788)},
                                                  {SwTableId(0x0A0B0C0D), LogVersion(1)}};
  const GroupLogRow row(0x0102030405060708, {kTableA, LogVersion(0x1112131415161718)}, needed);
  EXPECT_EQ(wordOf<std::uint64_t>(row, 0), 0x0102030405060708U);
  EXPECT_EQ(wordOf<std::uint64_t>(row, 8), 0x1112131415161718U);
  EXPECT_EQ(wordOf<std::uint32_t>(row, 16), 0x03010805U);
  EXPECT_EQ(wordOf<std::uint32_t>(row, 20), 2U);
  EXPECT_EQ(wordOf<std::uint32_t>(row, 24), 0x03010806U);
  EXPECT_EQ(wordOf<std::uint64_t>(row, 28), 0x1122334455667788U);
  EXPECT_EQ(wordOf<std::uint32_t>(row, 36), 0x0A0B0C0DU);
  EXPECT_EQ(wordOf<std::uint64_t>(row, 40), 1U);
  for (std::size_t at = 48; at < sizeof row; ++at) {
    EXPECT_EQ(wordOf<char>(row, at), 0) << at;
  }
}

TEST_F(GroupLogTest, TheMarksOfARowStandAboveItsCount) {
  const std::vector<Asic::TableVersion> needed(3, {kTableB, LogVersion(1)});
  const auto wordWith = [&](std::uint32_t marks) {
    return wordOf<std::uint32_t>(GroupLogRow(1, {kTableA, LogVersion(1)}, needed, marks), 20);
  };
  EXPECT_EQ(wordWith(0), 3U);
  EXPECT_EQ(wordWith(GroupLogRow::kContinued), 0x80000003U);
  EXPECT_EQ(wordWith(GroupLogRow::kContinuation), 0x40000003U);
  EXPECT_EQ(wordWith(GroupLogRow::kContinued | GroupLogRow::kContinuation), 0xC0000003U);
}

using GroupLogDeathTest = GroupLogTest;

TEST_F(GroupLogDeathTest, ARowForMoreVersionsThanItHoldsStopsTheProcess) {
  const std::vector<Asic::TableVersion> needed(9, {kTableB, LogVersion(1)});
  EXPECT_DEATH(GroupLogRow(1, {kTableA, LogVersion(1)}, needed),
               "assertion failed: needed.size\\(\\) <= kNeededPerRow");
}

}  // namespace
