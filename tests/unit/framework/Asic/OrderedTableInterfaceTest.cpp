// SPDX-License-Identifier: Apache-2.0

// The ordered tables of an agent, and its groups.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedTableInterface.h"
#include "PlainSwTable.h"
#include "Zev/Exceptions.h"
#include "testing/LeakCheck.h"
#include "testing/ManualEventLoop.h"
#include "testing/TemporaryRoot.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::OrderedTableInterface;
using Asic::SwTableId;
using asic_test::PlainSwTable;

constexpr SwTableId kTableId{0x03010805};
constexpr const char* kGroup = "LoamAdj.LoamAdj";

class PlainResourceTable : public Zev::Typed<PlainResourceTable, Asic::ResourceTableBase> {
 public:
  static constexpr const char* kTypeName = "PlainResourceTable";
};

class StuckEntry : public Zev::Typed<StuckEntry, Asic::ResolverEntry> {
 public:
  static constexpr const char* kTypeName = "StuckEntry";
  StuckEntry() : Typed(nullptr, Asic::EntryFlags::write()) {}
  bool isResolved() override { return false; }
  void commitEntry(const Pell::Ptr<ResolverEntry>& /*resolverEntry*/) override {}
};

class OrderedTableInterfaceTest : public testing_support::LeakCheckedTest {
 protected:
  Pell::Ptr<Asic::GroupInterface> makeGroup() {
    tables_->makeGroupIntf("LoamAdj", "LoamAdj", 0x0301);
    return tables_->groupIntf(kGroup);
  }

  testing_support::TemporaryRoot root_;
  testing_support::ManualEventLoop loop_;
  Pell::Ptr<Vanta::EntityManager> entityManager_ =
      Zev::makeObject<Vanta::EntityManager>(root_.path());
  Pell::Ptr<OrderedTableInterface> tables_ =
      Zev::makeObject<OrderedTableInterface>(loop_, entityManager_);
};

TEST_F(OrderedTableInterfaceTest, HoldsTheLoopAndTheEntityManager) {
  EXPECT_EQ(&tables_->eventLoop(), &loop_);
  EXPECT_EQ(tables_->entityManager(), entityManager_);
  EXPECT_EQ(tables_->fwkType().name, "Asic::OrderedTableInterface");
}

TEST_F(OrderedTableInterfaceTest, AGroupIsFoundUnderItsCanonicalName) {
  EXPECT_EQ(tables_->groupIntf(kGroup), nullptr);
  const auto group = makeGroup();
  ASSERT_TRUE(group);
  EXPECT_EQ(group->agentAndGroupId(), 0x0301);
  EXPECT_EQ(tables_->groupIntf("LoamAdj"), nullptr);
  tables_->groupIntfDel(kGroup);
  EXPECT_EQ(tables_->groupIntf(kGroup), nullptr);
}

TEST_F(OrderedTableInterfaceTest, MakingAGroupAgainLeavesItAsItIs) {
  const auto group = makeGroup();
  EXPECT_EQ(makeGroup(), group);
}

TEST_F(OrderedTableInterfaceTest, AResourceTableIsFoundUnderTheNameItWasFiledUnder) {
  EXPECT_EQ(tables_->resourceTable("r"), nullptr);
  const auto first = Zev::makeObject<PlainResourceTable>();
  const auto second = Zev::makeObject<PlainResourceTable>();
  tables_->resourceTableIs("r", first);
  EXPECT_EQ(tables_->resourceTable("r"), first);
  EXPECT_EQ(tables_->resourceTable("s"), nullptr);
  tables_->resourceTableIs("r", second);
  EXPECT_EQ(tables_->resourceTable("r"), second);
}

TEST_F(OrderedTableInterfaceTest, CallsAreTracedUnderTheClassesName) {
  const testing_support::TraceRecorder traces({"OrderedTableInterface"});
  makeGroup();
  makeGroup();
  tables_->resourceTableIs("r", nullptr);
  tables_->groupIntfDel(kGroup);
  EXPECT_THAT(traces.lines(),
              ::testing::ElementsAre("8 OrderedTableInterface::makeGroupIntf group: "
                                     "LoamAdj.LoamAdj agentAndGroupId: 0x0301",
                                     "8 OrderedTableInterface::resourceTableIs resourceTable: r",
                                     "8 OrderedTableInterface::groupIntfDel group: "
                                     "LoamAdj.LoamAdj"));
}

TEST_F(OrderedTableInterfaceTest, AGroupHasAResolverAndALog) {
  const auto group = makeGroup();
  EXPECT_EQ(group->groupResolver()->resolverQueueLength(), 0U);
  EXPECT_EQ(group->groupLogInterface(), group->groupLog());
  EXPECT_EQ(group->fwkType().name, "Asic::GroupInterface");
}

TEST_F(OrderedTableInterfaceTest, AGroupMakesOneSetATableId) {
  const auto group = makeGroup();
  EXPECT_FALSE(group->swTableSetHas(kTableId));
  EXPECT_EQ(group->swTableSet(kTableId), nullptr);
  const auto set = group->swTableSetIs(kTableId);
  EXPECT_EQ(set->tableId(), kTableId);
  EXPECT_TRUE(group->swTableSetHas(kTableId));
  EXPECT_EQ(group->swTableSetIs(kTableId), set);
  EXPECT_EQ(group->swTableSet(kTableId), set);
  EXPECT_EQ(group->swTableSets().size(), 1U);
}

TEST_F(OrderedTableInterfaceTest, AGroupThatGoesDropsWhatWaitsInItsResolver) {
  const auto resolver = makeGroup()->groupResolver();
  resolver->resolverQueueEnq(Zev::makeObject<StuckEntry>());
  EXPECT_EQ(resolver->resolverQueueLength(), 1U);
  tables_->groupIntfDel(kGroup);
  EXPECT_EQ(resolver->resolverQueueLength(), 0U);
}

TEST_F(OrderedTableInterfaceTest, AGroupThatCannotBeMountedIsAnErrorAndNoGroup) {
  const auto other = Zev::makeObject<Vanta::EntityManager>(root_.path());
  const auto holder = Zev::makeObject<OrderedTableInterface>(loop_, other);
  holder->makeGroupIntf("LoamAdj", "LoamAdj", 0x0301);
  EXPECT_THROW(makeGroup(), ZevGlint::MountException);
  EXPECT_EQ(tables_->groupIntf(kGroup), nullptr);
}

// What every software table of the framework has.

TEST(OrderedSwTableTest, KnowsItsIdItsUnitAndItsStatus) {
  const testing_support::LeakCheck leaks;
  const auto status = Zev::makeObject<Asic::OrderedSwTableStatus>(kTableId);
  const auto table = Zev::makeObject<PlainSwTable>(kTableId, Asic::UnitId(7), status);
  EXPECT_EQ(table->tableId(), kTableId);
  EXPECT_EQ(table->unitId(), Asic::UnitId(7));
  EXPECT_EQ(table->status(), status);
  EXPECT_EQ(table->tableName(), nullptr);
  EXPECT_EQ(table->nameString(), "03:01:0805 unit 7");
}

}  // namespace
