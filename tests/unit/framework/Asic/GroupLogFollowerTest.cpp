// SPDX-License-Identifier: Apache-2.0

// What a reader of the group log is handed out, operation by operation: whole ones only, in order,
// also behind a writer that was killed between two rows and behind damage.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/Constants.h"
#include "Asic/GroupLog.h"
#include "Asic/GroupLogFollower.h"
#include "Glint/SharedMemEntityManager.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::Announcement;
using Asic::GroupLog;
using Asic::GroupLogFollower;
using Asic::GroupLogGlint;
using Asic::GroupLogRow;
using Asic::LogVersion;
using Asic::SwTableId;
using Asic::TableVersion;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr SwTableId kTableA{0x03010805};
constexpr SwTableId kTableB{0x03010806};

class GroupLogFollowerTest : public testing_support::LeakCheckedTest {
 protected:
  GroupLogFollowerTest() {
    startWriter();
    startReader();
  }

  void startWriter() {
    log_ = nullptr;
    writers_ = Zev::makeObject<Vanta::EntityManager>(root_.path());
    log_ = Zev::makeObject<GroupLog>(writers_, "agent", "group");
  }
  // A mount of its own, as another process has it.
  void startReader() {
    readers_ = Zev::makeObject<Vanta::EntityManager>(root_.path());
    follower_.emplace(ZevSharedMem::mountForReading<GroupLogGlint>(
        readers_, Asic::Constants::groupLogGlintPath("agent", "group")));
  }

  static std::vector<TableVersion> needs(std::uint32_t tables) {
    std::vector<TableVersion> needed;
    for (std::uint32_t i = 0; i < tables; ++i) {
      needed.emplace_back(SwTableId(0x100 + i), LogVersion(i + 1));
    }
    return needed;
  }
  void add(SwTableId table, std::uint64_t version, std::uint32_t tablesNeeded = 0) {
    const auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (const TableVersion& tableVersion : needs(tablesNeeded)) {
      needed->add(tableVersion);
    }
    log_->addGroupLogEntry(table, LogVersion(version), needed);
  }
  // Kills the writer when it has written that many rows of an operation: they stand, and the
  // scratchpad says nothing of them.
  void killWithin(SwTableId table, std::uint64_t version, std::uint32_t tablesNeeded,
                  std::uint32_t rowsWritten) {
    const std::uint64_t last = logRows().control().scratchpad();
    add(table, version, tablesNeeded);
    const std::uint64_t end = logRows().control().scratchpad();
    for (std::uint64_t row = rowsWritten; row < GroupLogRow::rowsFor(tablesNeeded); ++row) {
      ASSERT_TRUE(logRows().rowDel(end - row + rowsWritten));
    }
    logRows().control().scratchpadIs(last);
    startWriter();
  }
  Glint::GlintMap<GroupLogRow>& logRows() const {
    return dynamic_cast<Glint::GlintMap<GroupLogRow>&>(log_->logMap());
  }
  void damageRow(std::uint32_t slot) const {
    testing_support::damageRow(log_->logMap().filePath(), slot);
  }

  static std::string text(const Announcement& announcement) {
    return fmt::format("{}:{}+{}", announcement.sequence, announcement.tableVersion,
                       announcement.needed.size());
  }
  // Everything that is new, up to nothingNew.
  std::vector<std::string> taken() {
    std::vector<std::string> found;
    for (;;) {
      Announcement next;
      switch (follower_->next(next)) {
        case GroupLogFollower::Found::announcement:
          EXPECT_EQ(next.sequence, follower_->lastTaken());
          found.push_back(text(next));
          break;
        case GroupLogFollower::Found::gap:
          found.push_back(fmt::format("gap {}", follower_->lastTaken()));
          break;
        case GroupLogFollower::Found::nothingNew:
          return found;
      }
    }
  }
  std::vector<std::string> standing(bool wantedWhole = true) {
    std::vector<Announcement> announcements;
    EXPECT_EQ(follower_->startOver(announcements), wantedWhole);
    std::vector<std::string> found;
    for (const Announcement& announcement : announcements) {
      found.push_back(text(announcement));
    }
    return found;
  }

  testing_support::TemporaryRoot root_;
  Pell::Ptr<Vanta::EntityManager> writers_;
  Pell::Ptr<GroupLog> log_;
  Pell::Ptr<Vanta::EntityManager> readers_;
  std::optional<GroupLogFollower> follower_;
};

TEST_F(GroupLogFollowerTest, ANewLogHasNothingNew) {
  EXPECT_THAT(taken(), IsEmpty());
  EXPECT_EQ(follower_->lastTaken(), 0U);
}

TEST_F(GroupLogFollowerTest, EachOperationIsHandedOutOnceInGroupOrder) {
  add(kTableB, 7);
  add(kTableA, 1, 2);
  EXPECT_THAT(taken(), ElementsAre("1:03:01:0806@7+0", "2:03:01:0805@1+2"));
  EXPECT_THAT(taken(), IsEmpty());
  add(kTableA, 2);
  EXPECT_THAT(taken(), ElementsAre("3:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, WhatIsThereFromBeforeIsNotNew) {
  add(kTableA, 1);
  startReader();
  EXPECT_EQ(follower_->lastTaken(), 1U);
  add(kTableA, 2);
  EXPECT_THAT(taken(), ElementsAre("2:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, AnOperationOfSeveralRowsIsHandedOutWhole) {
  for (const std::uint32_t tables : {7U, 8U, 9U, 16U, 17U, 1000U}) {
    const std::uint64_t before = follower_->lastTaken();
    add(kTableA, tables, tables);
    Announcement next;
    ASSERT_EQ(follower_->next(next), GroupLogFollower::Found::announcement);
    EXPECT_EQ(next.tableVersion, TableVersion(kTableA, LogVersion(tables)));
    EXPECT_THAT(next.needed, ::testing::ElementsAreArray(needs(tables)));
    EXPECT_EQ(next.sequence, before + GroupLogRow::rowsFor(tables));
    EXPECT_EQ(follower_->next(next), GroupLogFollower::Found::nothingNew);
  }
}

TEST_F(GroupLogFollowerTest, RowsBeyondTheScratchpadAreNotSeenYet) {
  add(kTableA, 1);
  const std::vector<TableVersion> needed = needs(8);
  logRows().rowIs({2, {kTableA, LogVersion(2)}, needed, GroupLogRow::kContinued});
  EXPECT_THAT(taken(), ElementsAre("1:03:01:0805@1+0"));
  logRows().rowIs({3, {kTableA, LogVersion(2)}, {}, GroupLogRow::kContinuation});
  EXPECT_THAT(taken(), IsEmpty());
  EXPECT_THAT(standing(), ElementsAre("1:03:01:0805@1+0"));
  logRows().control().scratchpadIs(3);
  EXPECT_THAT(taken(), ElementsAre("3:03:01:0805@2+8"));
}

// A writer that was killed.

TEST_F(GroupLogFollowerTest, RowsOfAnOperationThatAKillCutShortAreDropped) {
  add(kTableA, 1);
  killWithin(kTableA, 2, 24, 2);
  add(kTableA, 3, 9);
  add(kTableB, 1);
  EXPECT_THAT(taken(), ElementsAre("1:03:01:0805@1+0", "5:03:01:0805@3+9", "6:03:01:0806@1+0"));
}

TEST_F(GroupLogFollowerTest, AnOperationThatStandsWholeCountsThoughItsWriterWasKilled) {
  killWithin(kTableA, 2, 24, 3);
  add(kTableA, 3);
  EXPECT_THAT(taken(), ElementsAre("3:03:01:0805@2+24", "4:03:01:0805@3+0"));
}

TEST_F(GroupLogFollowerTest, AnOperationThatIsAnnouncedAgainAfterAKillHoldsItsOwnRowsAlone) {
  killWithin(kTableA, 2, 24, 2);
  add(kTableA, 2, 9);
  EXPECT_THAT(taken(), ElementsAre("4:03:01:0805@2+9"));
}

TEST_F(GroupLogFollowerTest, TwoKillsInARowLeaveTheNextOperationWhole) {
  killWithin(kTableA, 1, 24, 1);
  killWithin(kTableB, 1, 24, 2);
  add(kTableA, 2, 17);
  EXPECT_THAT(taken(), ElementsAre("6:03:01:0805@2+17"));
}

// Damage, and rows that have gone.

TEST_F(GroupLogFollowerTest, ARowThatIsDamagedIsAGapAndTheNextOperationFollows) {
  add(kTableA, 1);
  add(kTableA, 2);
  add(kTableA, 3);
  damageRow(1);
  EXPECT_THAT(taken(), ElementsAre("1:03:01:0805@1+0", "gap 2", "3:03:01:0805@3+0"));
}

TEST_F(GroupLogFollowerTest, DamageInAnyRowOfAnOperationCostsAllOfItAndNothingElse) {
  for (std::uint32_t damaged = 0; damaged < 3; ++damaged) {
    add(kTableA, 10 * damaged + 1);
    const std::uint64_t before = logRows().control().scratchpad();
    add(kTableA, 10 * damaged + 2, 24);
    add(kTableB, 10 * damaged + 1, 9);
    ASSERT_TRUE(logRows().rowDel(before + 1 + damaged));
    EXPECT_THAT(taken(),
                ElementsAre(fmt::format("{}:03:01:0805@{}+0", before, 10 * damaged + 1),
                            fmt::format("gap {}", before + 1 + damaged),
                            fmt::format("{}:03:01:0806@{}+9", before + 5, 10 * damaged + 1)));
  }
}

TEST_F(GroupLogFollowerTest, ACountThatNoWriterLeavesIsAGap) {
  add(kTableA, 1);
  logRows().rowIs({1, {kTableA, LogVersion(1)}, {}, 9});
  add(kTableA, 2);
  EXPECT_THAT(taken(), ElementsAre("gap 1", "2:03:01:0805@2+0"));
  EXPECT_THAT(standing(false), ElementsAre("2:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, AScratchpadThatIsDamagedAnnouncesNothingUntilTheNextOperation) {
  add(kTableA, 1);
  const std::string& file = log_->logMap().filePath();
  const auto header = testing_support::wordAt<Glint::Header>(file, 0);
  const Glint::Seq seq(header.scratchpad.seq);
  testing_support::flipBit(
      file, 8 * (offsetof(Glint::Header, scratchpad) + offsetof(Glint::ScratchpadSlot, copies) +
                 seq.copy() * sizeof(Glint::ScratchpadSlot::Copy) +
                 offsetof(Glint::ScratchpadSlot::Copy, value)));
  EXPECT_THAT(taken(), IsEmpty());
  std::vector<Announcement> announcements;
  EXPECT_FALSE(follower_->startOver(announcements));
  add(kTableA, 2);
  EXPECT_THAT(taken(), ElementsAre("1:03:01:0805@1+0", "2:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, WhatItFindsIsTracedUnderTheClassesName) {
  const testing_support::TraceRecorder traces({"GroupLogFollower"});
  add(kTableA, 1);
  add(kTableA, 2);
  logRows().rowDel(2);
  taken();
  standing();
  EXPECT_THAT(traces.lines(),
              ElementsAre("8 GroupLogFollower::next sequence: 1 tableVersion: 03:01:0805@1",
                          "3 GroupLogFollower::next sequence: 2 is missing or damaged",
                          "8 GroupLogFollower::startOver standing: 1 lastTaken: 2 sawAll: true"));
}

// Starting over.

TEST_F(GroupLogFollowerTest, WhatStandsIsHandedOutInGroupOrderAndIsNotNewAnyMore) {
  add(kTableA, 1);
  add(kTableB, 1, 17);
  add(kTableA, 2);
  EXPECT_THAT(standing(), ElementsAre("1:03:01:0805@1+0", "4:03:01:0806@1+17", "5:03:01:0805@2+0"));
  EXPECT_THAT(taken(), IsEmpty());
  add(kTableA, 3);
  EXPECT_THAT(taken(), ElementsAre("6:03:01:0805@3+0"));
}

TEST_F(GroupLogFollowerTest, WhatStandsReplacesWhatItsCallerHadOfBefore) {
  add(kTableA, 1);
  std::vector<Announcement> announcements(3);
  EXPECT_TRUE(follower_->startOver(announcements));
  ASSERT_EQ(announcements.size(), 1U);
  EXPECT_EQ(text(announcements.front()), "1:03:01:0805@1+0");
}

TEST_F(GroupLogFollowerTest, WhatHasBeenReportedAppliedDoesNotStandAndItsPlaceIsNoGap) {
  add(kTableA, 1, 9);
  add(kTableB, 1, 9);
  add(kTableA, 2);
  log_->tableVersionIs({kTableA, LogVersion(1)});
  EXPECT_THAT(standing(), ElementsAre("4:03:01:0806@1+9", "5:03:01:0805@2+0"));
  log_->tableVersionIs({kTableB, LogVersion(1)});
  EXPECT_THAT(standing(), ElementsAre("5:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, StandingRowsOfSlotsThatWereUsedBeforeStandInGroupOrder) {
  for (std::uint64_t version = 1; version <= 4; ++version) {
    add(kTableA, version);
  }
  log_->tableVersionIs({kTableA, LogVersion(4)});
  add(kTableA, 5, 17);
  add(kTableA, 6);
  EXPECT_THAT(standing(), ElementsAre("7:03:01:0805@5+17", "8:03:01:0805@6+0"));
}

TEST_F(GroupLogFollowerTest, TheRestOfAnOperationWhoseRowsAreGoingDoesNotStand) {
  add(kTableA, 1, 17);
  add(kTableA, 2);
  ASSERT_TRUE(logRows().rowDel(1));
  EXPECT_THAT(standing(), ElementsAre("4:03:01:0805@2+0"));
}

TEST_F(GroupLogFollowerTest, DamageAmongStandingRowsIsSaid) {
  add(kTableA, 1);
  add(kTableA, 2, 17);
  add(kTableA, 3);
  damageRow(2);
  EXPECT_THAT(standing(false), ElementsAre("1:03:01:0805@1+0", "5:03:01:0805@3+0"));
  EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(GroupLogFollowerTest, AnOperationThatWasBeingTakenIsForgottenByStartingOver) {
  const std::vector<TableVersion> needed = needs(8);
  logRows().rowIs({1, {kTableA, LogVersion(1)}, needed, GroupLogRow::kContinued});
  logRows().control().scratchpadIs(1);
  EXPECT_THAT(taken(), IsEmpty());
  logRows().rowDel(1);
  logRows().rowIs({2, {kTableA, LogVersion(1)}, needed, GroupLogRow::kContinuation});
  logRows().control().scratchpadIs(2);
  EXPECT_THAT(standing(), IsEmpty());
}

TEST_F(GroupLogFollowerTest, ARowThatGoesOnWithAnOperationThatIsCompleteIsDropped) {
  const TableVersion version(SwTableId(7), LogVersion(3));
  Asic::AnnouncementCollector collector;
  EXPECT_TRUE(collector.take(GroupLogRow(1, version)));
  EXPECT_FALSE(collector.take(GroupLogRow(2, version, {}, GroupLogRow::kContinuation)));
  EXPECT_EQ(collector.announcement().sequence, 1U);
}

TEST_F(GroupLogFollowerTest, WhatIsDroppedOfAnOperationThatIsNotWholeIsTraced) {
  const TableVersion cut(SwTableId(0x03010805), LogVersion(3));
  const TableVersion next(SwTableId(0x03010805), LogVersion(4));
  const testing_support::TraceRecorder traces({"AnnouncementCollector"});
  Asic::AnnouncementCollector collector;
  collector.take(GroupLogRow(1, cut, needs(8), GroupLogRow::kContinued));
  collector.take(GroupLogRow(3, cut, {}, GroupLogRow::kContinuation));
  EXPECT_TRUE(collector.take(GroupLogRow(4, next)));
  EXPECT_TRUE(collector.take(GroupLogRow(5, next)));
  EXPECT_THAT(traces.lines(),
              ElementsAre("3 AnnouncementCollector::take sequence: 3 of 03:01:0805@3 dropped: rows "
                          "before it are gone",
                          "3 AnnouncementCollector::take 03:01:0805@3 dropped: rows behind "
                          "sequence: 1 are gone"));
}

TEST_F(GroupLogFollowerTest, ARowThatGoesOnWithAnotherVersionOrTableIsDropped) {
  const std::vector<TableVersion> needed = needs(8);
  for (const TableVersion other :
       {TableVersion(kTableA, LogVersion(2)), TableVersion(kTableB, LogVersion(1))}) {
    const std::uint64_t last = logRows().control().scratchpad();
    logRows().rowIs({last + 1, {kTableA, LogVersion(1)}, needed, GroupLogRow::kContinued});
    logRows().rowIs({last + 2, other, needed, GroupLogRow::kContinuation});
    logRows().control().scratchpadIs(last + 2);
    EXPECT_THAT(taken(), IsEmpty());
  }
}

}  // namespace
