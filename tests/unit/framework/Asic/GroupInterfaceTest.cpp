// SPDX-License-Identifier: Apache-2.0

// What the hardware reports to a group: which reports are believed, who hears of them in which
// order, and what becomes of it when one who hears throws.

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedTableInterface.h"
#include "PlainSwTable.h"
#include "testing/LeakCheck.h"
#include "testing/ManualEventLoop.h"
#include "testing/TemporaryRoot.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::GroupInterface;
using Asic::GroupLog;
using Asic::LogVersion;
using Asic::SwTableId;
using Asic::UnitId;
using asic_test::PlainSwTable;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr SwTableId kTableId{0x03010805};
constexpr SwTableId kOther{0x03010806};
constexpr std::uint16_t kUnits[] = {0, 1, 2};

// Waits for ever, and counts how often it is asked.
class AskedEntry : public Zev::Typed<AskedEntry, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "AskedEntry";
  AskedEntry() : Typed(nullptr, Asic::EntryFlags::write()) {}
  bool isResolved() override {
    ++asked;
    return false;
  }
  void commitEntry(const Pell::Ptr<ResolverEntry>& /*resolverEntry*/) override {}

  int asked = 0;
};

class GroupInterfaceTest : public testing_support::LeakCheckedTest {
 protected:
  GroupInterfaceTest() { start(); }

  void start() {
    const auto entityManager = Zev::makeObject<Vanta::EntityManager>(root_.path());
    group_ = Zev::makeObject<GroupInterface>(loop_, entityManager, "agent", "group",
                                             std::uint16_t{0x0301});
  }
  void restart() {
    group_ = nullptr;
    start();
  }

  Pell::Ptr<PlainSwTable> addedTable(std::uint16_t unit) {
    auto table = Zev::makeObject<PlainSwTable>(kTableId, UnitId(unit));
    group_->swTableSetIs(kTableId)->swTableIs(table);
    return table;
  }
  void announce(std::uint64_t version, SwTableId table = kTableId) {
    group_->groupLog()->addGroupLogEntry(table, LogVersion(version), nullptr);
  }
  void report(std::uint64_t version, SwTableId table = kTableId) {
    group_->tableVersionApplied({table, LogVersion(version)});
  }
  std::uint64_t recorded(SwTableId table = kTableId) const {
    return group_->groupLog()->tableVersion(table).value();
  }

  testing_support::TemporaryRoot root_;
  testing_support::ManualEventLoop loop_;
  Pell::Ptr<GroupInterface> group_;
};

// Who hears, and in which order.

TEST_F(GroupInterfaceTest, AReportIsToldToEveryTableAndThenRecordedAndThenPublished) {
  announce(3);
  std::vector<std::string> order;
  for (const std::uint16_t unit : kUnits) {
    const auto table = addedTable(unit);
    table->onReport = [&, told = table.get()] {
      EXPECT_THAT(told->reports, ElementsAre(LogVersion(3)));
      EXPECT_FALSE(group_->groupLog()->hasTableVersion(kTableId));
      EXPECT_EQ(group_->groupLog()->logMap().rowCount(), 1U);
      order.emplace_back("table");
    };
  }
  Pell::Subscriber subscriber(
      [&](Pell::Publisher*, Pell::Subscriber*, short attribute, const void*, const void*) {
        EXPECT_EQ(attribute, GroupLog::kAppliedVersionsAttribute);
        EXPECT_EQ(recorded(), 3U);
        order.emplace_back("group log");
      });
  group_->groupLog()->publisher().subscriberAdd(subscriber);
  report(3);
  group_->groupLog()->publisher().subscriberRemove(subscriber);
  EXPECT_THAT(order, ElementsAre("table", "table", "table", "group log"));
  EXPECT_EQ(group_->groupLog()->logMap().rowCount(), 0U);
}

TEST_F(GroupInterfaceTest, AReportOfATableWithoutASetIsRecordedAllTheSame) {
  announce(3);
  report(3);
  EXPECT_EQ(recorded(), 3U);
}

TEST_F(GroupInterfaceTest, AReportReachesTheTablesOfItsOwnIdAlone) {
  const auto table = addedTable(0);
  announce(3, kOther);
  report(3, kOther);
  EXPECT_THAT(table->reports, IsEmpty());
  EXPECT_EQ(recorded(kOther), 3U);
  EXPECT_FALSE(group_->groupLog()->hasTableVersion(kTableId));
}

TEST_F(GroupInterfaceTest, ATableMayReportAgainWhatItHears) {
  announce(3);
  announce(4);
  const auto table = addedTable(0);
  table->onReport = [&] {
    if (table->reports.size() == 1) {
      report(4);
    }
  };
  report(3);
  EXPECT_THAT(table->reports, ElementsAre(LogVersion(3), LogVersion(4)));
  EXPECT_EQ(recorded(), 4U) << "the outer report does not bring the applied version down again";
}

TEST_F(GroupInterfaceTest, TheGroupMayBeDroppedByAReport) {
  announce(3);
  const auto table = addedTable(0);
  table->onReport = [&] { group_ = nullptr; };
  GroupInterface* group = group_.get();
  group->tableVersionApplied({kTableId, LogVersion(3)});
  start();
  EXPECT_EQ(recorded(), 3U);
}

// Handlers that throw.

TEST_F(GroupInterfaceTest, AReportIsRecordedAndToldToAllAlsoWhenATableThrows) {
  announce(3);
  std::vector<Pell::Ptr<PlainSwTable>> tables;
  for (const std::uint16_t unit : kUnits) {
    tables.push_back(addedTable(unit));
    tables.back()->onReport = [unit] { throw std::runtime_error(std::to_string(unit)); };
  }
  try {
    report(3);
    FAIL() << "what a table throws is passed on";
  } catch (const std::runtime_error& first) {
    EXPECT_STREQ(first.what(), "0");
  }
  for (const auto& table : tables) {
    EXPECT_THAT(table->reports, ElementsAre(LogVersion(3)));
  }
  EXPECT_EQ(recorded(), 3U);
  EXPECT_EQ(group_->groupLog()->logMap().rowCount(), 0U);
}

TEST_F(GroupInterfaceTest, AnObserverOfTheGroupLogThatThrowsIsPassedOnWhenAllIsRecorded) {
  announce(3);
  Pell::Subscriber subscriber([](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                                 const void*) { throw std::runtime_error("observer"); });
  group_->groupLog()->publisher().subscriberAdd(subscriber);
  const auto table = addedTable(0);
  EXPECT_THROW(report(3), std::runtime_error);
  group_->groupLog()->publisher().subscriberRemove(subscriber);
  EXPECT_THAT(table->reports, ElementsAre(LogVersion(3)));
  EXPECT_EQ(recorded(), 3U);
}

// Reports that are not believed.

TEST_F(GroupInterfaceTest, AReportAboveWhatWasAnnouncedIsRefusedCountedAndHeardByNobody) {
  announce(4);
  announce(5);
  const auto table = addedTable(0);
  const testing_support::TraceRecorder traces({"GroupInterface"});
  report(6);
  EXPECT_THAT(table->reports, IsEmpty());
  EXPECT_FALSE(group_->groupLog()->hasTableVersion(kTableId));
  EXPECT_EQ(group_->groupLog()->logMap().rowCount(), 2U);
  EXPECT_EQ(group_->refusedReports(), 1U);
  EXPECT_THAT(traces.lines(1), ElementsAre("1 GroupInterface::tableVersionApplied refused: "
                                           "03:01:0805@6 was never announced"));
  report(4);
  report(5);
  EXPECT_THAT(table->reports, ElementsAre(LogVersion(4), LogVersion(5)));
  EXPECT_EQ(recorded(), 5U);
  EXPECT_EQ(group_->refusedReports(), 1U);
}

TEST_F(GroupInterfaceTest, WhatIsAnnouncedIsComparedWhole) {
  announce(0x100000005);
  report(0x200000004);
  EXPECT_EQ(group_->refusedReports(), 1U);
  report(0xFFFFFFFF);
  EXPECT_EQ(group_->refusedReports(), 1U);
  EXPECT_EQ(recorded(), 0xFFFFFFFFU);
}

TEST_F(GroupInterfaceTest, WhatOneTableAnnouncedSaysNothingOfAnother) {
  announce(5, kOther);
  announce(5, SwTableId(0x03020805));
  report(1);
  EXPECT_EQ(group_->refusedReports(), 1U);
  report(5, kOther);
  EXPECT_EQ(group_->refusedReports(), 1U);
}

TEST_F(GroupInterfaceTest, VersionZeroIsBelievedOfATableThatAnnouncedNothing) {
  const auto table = addedTable(0);
  report(0);
  EXPECT_THAT(table->reports, ElementsAre(LogVersion(0)));
  EXPECT_EQ(group_->refusedReports(), 0U);
  report(1);
  EXPECT_EQ(group_->refusedReports(), 1U);
}

TEST_F(GroupInterfaceTest, RowsThatARestartReadsBackAreAnnounced) {
  announce(4);
  announce(5);
  report(4);
  restart();
  report(6);
  EXPECT_EQ(group_->refusedReports(), 1U);
  report(5);
  EXPECT_EQ(group_->refusedReports(), 1U);
  EXPECT_EQ(recorded(), 5U);
}

TEST_F(GroupInterfaceTest, AnAppliedVersionOnRecordIsAnnouncedAfterARestart) {
  announce(5);
  report(5);
  restart();
  EXPECT_EQ(group_->groupLog()->logMap().rowCount(), 0U);
  report(5);
  EXPECT_EQ(group_->refusedReports(), 0U);
  report(6);
  EXPECT_EQ(group_->refusedReports(), 1U);
}

TEST_F(GroupInterfaceTest, WhatATablesOwnLogHandedOutIsAnnouncedAndOnlyRises) {
  group_->groupLog()->announcedIs({kTableId, LogVersion(7)});
  group_->groupLog()->announcedIs({kTableId, LogVersion(6)});
  report(8);
  EXPECT_EQ(group_->refusedReports(), 1U);
  report(7);
  EXPECT_EQ(group_->refusedReports(), 1U);
  EXPECT_EQ(recorded(), 7U);
}

// A group log that is full.

class FullGroupLogTest : public GroupInterfaceTest {
 protected:
  // With version 2 of the other table, whose rows no request fits behind.
  FullGroupLogTest() {
    const auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (std::uint32_t i = 0; i < 8 * Asic::GroupLogGlint::kCapacity; ++i) {
      needed->add({SwTableId(i), LogVersion(1)});
    }
    announce(1, kOther);
    group_->groupLog()->addGroupLogEntry(kOther, LogVersion(2), needed);
  }
};

TEST_F(FullGroupLogTest, AReportThatMakesRoomHasTheRequestsLookedAtAgain) {
  ASSERT_FALSE(group_->groupLog()->requestsFit());
  const auto entry = Zev::makeObject<AskedEntry>();
  group_->groupResolver()->resolverQueueEnq(entry);
  report(1, kOther);
  loop_.runUntilIdle();
  EXPECT_FALSE(group_->groupLog()->requestsFit());
  EXPECT_EQ(entry->asked, 0);
  report(2, kOther);
  EXPECT_EQ(entry->asked, 0) << "not inside the call";
  loop_.runUntilIdle();
  EXPECT_TRUE(group_->groupLog()->requestsFit());
  EXPECT_EQ(entry->asked, 1);
}

TEST_F(FullGroupLogTest, AReportThatMakesRoomIsTracedOnce) {
  const testing_support::TraceRecorder traces({"GroupInterface"});
  report(1, kOther);
  EXPECT_THAT(traces.lines(3), IsEmpty());
  report(2, kOther);
  report(2, kOther);
  EXPECT_THAT(traces.lines(3), ElementsAre("3 GroupInterface::tableVersionApplied the group log "
                                           "has room for requests again"));
}

TEST_F(FullGroupLogTest, AReportThatMakesRoomDoesSoAlsoWhenAnObserverOfTheGroupLogThrows) {
  const auto entry = Zev::makeObject<AskedEntry>();
  group_->groupResolver()->resolverQueueEnq(entry);
  loop_.runUntilIdle();
  const int before = entry->asked;
  Pell::Subscriber subscriber([](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                                 const void*) { throw std::runtime_error("observer"); });
  group_->groupLog()->publisher().subscriberAdd(subscriber);
  EXPECT_THROW(report(2, kOther), std::runtime_error);
  loop_.runUntilIdle();
  EXPECT_EQ(entry->asked, before + 1);
}

TEST_F(GroupInterfaceTest, CallsAreTracedUnderTheClassesName) {
  const testing_support::TraceRecorder traces({"GroupInterface"});
  group_->swTableSetIs(kTableId);
  group_->swTableSetIs(kTableId);
  report(0);
  EXPECT_THAT(traces.lines(),
              ElementsAre("8 GroupInterface::swTableSetIs tableId: 03:01:0805",
                          "8 GroupInterface::tableVersionApplied applied: 03:01:0805@0"));
}

}  // namespace
