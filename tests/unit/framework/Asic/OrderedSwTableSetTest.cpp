// SPDX-License-Identifier: Apache-2.0

#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedSwTableSet.h"
#include "PlainSwTable.h"
#include "testing/LeakCheck.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::LogVersion;
using Asic::OrderedSwTableSet;
using Asic::SwTableId;
using Asic::UnitId;
using asic_test::PlainSwTable;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr SwTableId kTableId{0x03010805};

class OrderedSwTableSetTest : public testing_support::LeakCheckedTest {
 protected:
  static Pell::Ptr<PlainSwTable> table(std::uint16_t unit) {
    return Zev::makeObject<PlainSwTable>(kTableId, UnitId(unit),
                                         Zev::makeObject<Asic::OrderedSwTableStatus>(kTableId));
  }
  Pell::Ptr<PlainSwTable> added(std::uint16_t unit) {
    auto made = table(unit);
    set_->swTableIs(made);
    return made;
  }

  Pell::Ptr<OrderedSwTableSet> set_ = Zev::makeObject<OrderedSwTableSet>(kTableId);
};

TEST_F(OrderedSwTableSetTest, HoldsATableAUnit) {
  EXPECT_EQ(set_->tableId(), kTableId);
  EXPECT_EQ(set_->swTable(UnitId(0)), nullptr);
  const auto zero = added(0);
  const auto one = added(1);
  EXPECT_EQ(set_->swTable(UnitId(0)), zero);
  EXPECT_EQ(set_->swTable(UnitId(1)), one);
}

TEST_F(OrderedSwTableSetTest, ASecondTableOfAUnitReplacesTheFirst) {
  const auto first = added(0);
  const auto second = added(0);
  EXPECT_EQ(set_->swTable(UnitId(0)), second);
  set_->tableStatusVersion(LogVersion(1));
  EXPECT_THAT(first->reports, IsEmpty());
  EXPECT_THAT(second->reports, ElementsAre(LogVersion(1)));
}

TEST_F(OrderedSwTableSetTest, AReportReachesTheTableOfEveryUnit) {
  const auto zero = added(0);
  const auto one = added(1);
  set_->tableStatusVersion(LogVersion(5));
  set_->tableStatusVersion(LogVersion(5));
  EXPECT_THAT(zero->reports, ElementsAre(LogVersion(5), LogVersion(5)));
  EXPECT_THAT(one->reports, ElementsAre(LogVersion(5), LogVersion(5)));
}

TEST_F(OrderedSwTableSetTest, ADeletedTableHearsNoMoreReports) {
  const auto zero = added(0);
  set_->swTableDel(UnitId(0));
  set_->swTableDel(UnitId(9));
  set_->tableStatusVersion(LogVersion(5));
  EXPECT_THAT(zero->reports, IsEmpty());
}

TEST_F(OrderedSwTableSetTest, ATableMayBeDroppedByTheReportItGets) {
  auto& tracker = Zev::trackerOf<PlainSwTable>();
  added(0)->onReport = [&] {
    set_->swTableDel(UnitId(0));
    EXPECT_EQ(tracker.live(), 2) << "it goes when its report is over";
  };
  const auto one = added(1);
  EXPECT_EQ(tracker.live(), 2);
  set_->tableStatusVersion(LogVersion(5));
  EXPECT_EQ(tracker.live(), 1);
  EXPECT_THAT(one->reports, ElementsAre(LogVersion(5)));
}

TEST_F(OrderedSwTableSetTest, ATableThatThrowsKeepsNoOtherFromHearing) {
  const auto zero = added(0);
  const auto one = added(1);
  const auto two = added(2);
  zero->onReport = [] { throw std::runtime_error("zero"); };
  one->onReport = [] { throw std::runtime_error("one"); };
  try {
    set_->tableStatusVersion(LogVersion(5));
    FAIL() << "what a table throws is passed on";
  } catch (const std::runtime_error& first) {
    EXPECT_STREQ(first.what(), "zero") << "of several the first";
  }
  EXPECT_THAT(zero->reports, ElementsAre(LogVersion(5)));
  EXPECT_THAT(one->reports, ElementsAre(LogVersion(5)));
  EXPECT_THAT(two->reports, ElementsAre(LogVersion(5)));
}

TEST_F(OrderedSwTableSetTest, ATableThatThrowsAfterItDroppedAllKeepsNobodyAlive) {
  auto& tables = Zev::trackerOf<PlainSwTable>();
  added(0)->onReport = [this] {
    set_->swTableDel(UnitId(0));
    set_->swTableDel(UnitId(1));
    throw std::runtime_error("zero");
  };
  added(1);
  EXPECT_THROW(set_->tableStatusVersion(LogVersion(5)), std::runtime_error);
  EXPECT_EQ(tables.live(), 0);
}

TEST_F(OrderedSwTableSetTest, TheSetMayBeDroppedByAReport) {
  auto& sets = Zev::trackerOf<OrderedSwTableSet>();
  added(0)->onReport = [this] { set_ = nullptr; };
  const auto one = added(1);
  OrderedSwTableSet* set = set_.get();
  set->tableStatusVersion(LogVersion(5));
  EXPECT_EQ(sets.live(), 0);
  EXPECT_THAT(one->reports, ElementsAre(LogVersion(5)));
}

TEST_F(OrderedSwTableSetTest, CallsAreTracedUnderTheClassesName) {
  const testing_support::TraceRecorder traces({"OrderedSwTableSet"});
  added(3);
  set_->tableStatusVersion(LogVersion(5));
  set_->swTableDel(UnitId(3));
  EXPECT_THAT(traces.lines(),
              ElementsAre("8 OrderedSwTableSet::swTableIs tableId: 03:01:0805 unitId: 3",
                          "8 OrderedSwTableSet::tableStatusVersion tableId: 03:01:0805 version: 5",
                          "8 OrderedSwTableSet::swTableDel tableId: 03:01:0805 unitId: 3"));
}

TEST_F(OrderedSwTableSetTest, HardwareWritesArePendingWhileAnyTablesStatusSaysSo) {
  EXPECT_FALSE(set_->pendingHwWrites());
  const auto zero = added(0);
  const auto one = added(1);
  EXPECT_FALSE(set_->pendingHwWrites());
  one->status()->pendingHwWritesIs(true);
  EXPECT_TRUE(set_->pendingHwWrites());
  one->status()->pendingHwWritesIs(false);
  EXPECT_FALSE(set_->pendingHwWrites());
  zero->status()->pendingHwWritesIs(true);
  EXPECT_TRUE(set_->pendingHwWrites());
}

TEST_F(OrderedSwTableSetTest, ItNamesItsType) {
  EXPECT_EQ(set_->fwkType().name, "Asic::OrderedSwTableSet");
}

}  // namespace
