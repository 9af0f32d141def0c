// SPDX-License-Identifier: Apache-2.0

// The operations of a collection, in one process: rows, boundaries, iteration, re-mounts.

#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Zev/WorkMeter.h"
#include "offline/Verify.h"
#include "testing/LeakCheck.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"
#include "testing/TraceRecorder.h"

namespace {

using glint_test::OddRow;
using glint_test::oddRow;
using glint_test::RisingRow;
using glint_test::risingRow;
using glint_test::SmallRow;
using glint_test::smallRow;
using glint_test::State;
using glint_test::walk;

class GlintMapTest : public testing_support::LeakCheckedTest {
 protected:
  void restart() {
    state_.reset();
    state_.emplace(root_.path());
  }
  State& state() { return *state_; }
  const Pell::String& root() const { return root_.path(); }

  void expectVerifies(const Pell::String& file, std::uint32_t rows) {
    const Glint::Verification found = Glint::verifyTable(root() + "/" + file);
    EXPECT_THAT(found.findings, ::testing::IsEmpty());
    EXPECT_EQ(found.liveRows, rows);
    EXPECT_EQ(found.freeSlots + found.liveRows + found.retiredSlots, found.slotsInUse);
    EXPECT_FALSE(found.changeInFlight);
  }

 private:
  testing_support::TemporaryRoot root_;
  std::optional<State> state_{root_.path()};
};

TEST_F(GlintMapTest, ANewCollectionIsEmptyAndReady) {
  const auto entity = state().mount<SmallRow>("t", 10);
  auto& rows = entity->rows();
  EXPECT_TRUE(rows.isReady());
  EXPECT_EQ(rows.rowCount(), 0U);
  EXPECT_EQ(rows.capacity(), 10U);
  EXPECT_EQ(rows.corruptionCount(), 0U);
  EXPECT_EQ(rows.control().scratchpad(), 0U);
  EXPECT_FALSE(rows.has(1));
  EXPECT_FALSE(rows.row(1).has_value());
  EXPECT_FALSE(rows.rowDel(1));
  EXPECT_FALSE(rows.iterator().valid());
  expectVerifies("t.table", 0);
}

TEST_F(GlintMapTest, AnInsertedRowIsFoundAndCounted) {
  auto entity = state().mount<OddRow>("t", 10);
  entity->rows().rowIs(oddRow(7, 99));
  EXPECT_TRUE(entity->rows().has(7));
  EXPECT_EQ(entity->rows().row(7), oddRow(7, 99));
  EXPECT_EQ(entity->rows().rowCount(), 1U);
  EXPECT_FALSE(entity->rows().has(8));
}

TEST_F(GlintMapTest, AReplacedRowIsNotCountedTwice) {
  auto entity = state().mount<OddRow>("t", 10);
  for (std::uint64_t value = 0; value < 5; ++value) {
    entity->rows().rowIs(oddRow(7, value));
    EXPECT_EQ(entity->rows().row(7), oddRow(7, value));
  }
  EXPECT_EQ(entity->rows().rowCount(), 1U);
  expectVerifies("t.table", 1);
}

TEST_F(GlintMapTest, ARowReplacedByAnEqualOneStays) {
  auto entity = state().mount<RisingRow>("t", 10);
  entity->rows().rowIs(risingRow(7, 1));
  entity->rows().rowIs(risingRow(7, 1));
  EXPECT_EQ(entity->rows().row(7), risingRow(7, 1));
  EXPECT_EQ(entity->rows().rowCount(), 1U);
}

TEST_F(GlintMapTest, ARemovedRowIsGoneOnceAndCanComeBack) {
  auto entity = state().mount<OddRow>("t", 10);
  entity->rows().rowIs(oddRow(7, 1));
  EXPECT_TRUE(entity->rows().rowDel(7));
  EXPECT_FALSE(entity->rows().rowDel(7));
  EXPECT_FALSE(entity->rows().has(7));
  EXPECT_EQ(entity->rows().rowCount(), 0U);
  entity->rows().rowIs(oddRow(7, 2));
  EXPECT_EQ(entity->rows().row(7), oddRow(7, 2));
  expectVerifies("t.table", 1);
}

TEST_F(GlintMapTest, KeysAtTheEndsOfTheirRangeAreKeysLikeOthers) {
  auto small = state().mount<SmallRow>("small", 10);
  auto odd = state().mount<OddRow>("odd", 10);
  for (const std::uint64_t key : {std::uint64_t{0}, std::uint64_t{1}, UINT64_MAX}) {
    small->rows().rowIs(smallRow(key, key));
    EXPECT_EQ(small->rows().row(key), smallRow(key, key));
  }
  for (const std::uint32_t key : {0U, 1U, UINT32_MAX}) {
    odd->rows().rowIs(oddRow(key, key));
    EXPECT_EQ(odd->rows().row(key), oddRow(key, key));
  }
  EXPECT_EQ(small->rows().rowCount(), 3U);
  EXPECT_EQ(odd->rows().rowCount(), 3U);
}

TEST_F(GlintMapTest, RowsOfOneBucketDoNotDisturbEachOther) {
  auto entity = state().mount<RisingRow>("t", 8);  // 8 buckets, keys in key order
  for (const std::uint64_t key : {1U, 9U, 17U, 25U}) {
    entity->rows().rowIs(risingRow(key, key));
  }
  EXPECT_TRUE(entity->rows().rowDel(17));  // in the middle of the chain
  EXPECT_TRUE(entity->rows().rowDel(25));  // at its head
  EXPECT_TRUE(entity->rows().rowDel(1));   // at its end
  EXPECT_FALSE(entity->rows().has(1));
  EXPECT_FALSE(entity->rows().has(33));
  EXPECT_EQ(entity->rows().row(9), risingRow(9, 9));
  expectVerifies("t.table", 1);
}

TEST_F(GlintMapTest, RowsScratchpadAndCountsSurviveARestart) {
  {
    auto entity = state().mount<OddRow>("a/b/c", 100);
    for (std::uint32_t key = 0; key < 100; ++key) {
      entity->rows().rowIs(oddRow(key, key));
    }
    entity->rows().rowDel(50);
    entity->rows().control().scratchpadIs(77);
  }
  restart();
  auto entity = state().mount<OddRow>("a/b/c", 100);
  EXPECT_EQ(entity->rows().rowCount(), 99U);
  EXPECT_EQ(entity->rows().control().scratchpad(), 77U);
  EXPECT_FALSE(entity->rows().has(50));
  EXPECT_EQ(entity->rows().row(99), oddRow(99, 99));
  expectVerifies("a~b~c.table", 99);
}

TEST_F(GlintMapTest, TheScratchpadHoldsEveryValueInTurn) {
  auto entity = state().mount<OddRow>("t", 10);
  for (const std::uint64_t value : {std::uint64_t{1}, std::uint64_t{0}, UINT64_MAX}) {
    entity->rows().control().scratchpadIs(value);
    EXPECT_EQ(entity->rows().control().scratchpad(), value);
    State reader(root());
    EXPECT_EQ(reader.mountReader<OddRow>("t")->rows().control().scratchpad(), value);
  }
}

// ---- traces

TEST_F(GlintMapTest, EveryStoreIsTracedOnceAtLevel9WithItsFileAndKey) {
  auto entity = state().mount<OddRow>("one/t", 10);
  testing_support::TraceRecorder traces({"GlintMap"});
  entity->rows().rowIs(oddRow(7, 1));
  entity->rows().rowIs(oddRow(7, 2));
  entity->rows().control().scratchpadIs(UINT64_MAX);
  EXPECT_TRUE(entity->rows().rowDel(7));
  EXPECT_FALSE(entity->rows().rowDel(7));  // no store, no line
  EXPECT_EQ(traces.lines(),
            (std::vector<std::string>{
                "9 GlintMap::rowIs one~t.table: row 7 written",
                "9 GlintMap::rowIs one~t.table: row 7 written",
                "9 GlintMap::scratchpadIs one~t.table: scratchpad 18446744073709551615",
                "9 GlintMap::rowDel one~t.table: row 7 removed"}));
}

TEST_F(GlintMapTest, AStoreIsTracedWhenEveryProcessSeesIt) {
  auto entity = state().mount<OddRow>("t", 10);
  State reader(root());
  auto seen = reader.mountReader<OddRow>("t");
  const testing_support::TraceRecorder levels({"GlintMap"}, 1U << 9U);
  std::vector<bool> had;
  Zev::traceSinkIs([&](const Zev::TraceRecord&) {
    had.push_back(seen->rows().has(7) && seen->rows().control().scratchpad() == had.size());
  });
  entity->rows().rowIs(oddRow(7, 1));
  entity->rows().control().scratchpadIs(1);
  entity->rows().rowDel(7);
  EXPECT_EQ(had, (std::vector<bool>{true, true, false}));
}

class GlintMapCapacity : public GlintMapTest,
                         public ::testing::WithParamInterface<std::uint32_t> {};

// Chunks of slots are reserved 1024 at a time: one below, at and above each edge.
TEST_P(GlintMapCapacity, FillsToTheLastSlotEmptiesAndFillsAgain) {
  const std::uint32_t slots = 2 * GetParam();
  auto entity = state().mount<SmallRow>("t", GetParam());
  for (std::uint64_t round = 0; round < 2; ++round) {
    for (std::uint64_t key = 0; key < slots; ++key) {
      entity->rows().rowIs(smallRow(key, round));
    }
    ASSERT_EQ(entity->rows().rowCount(), slots);
    entity->rows().rowIs(smallRow(slots - 1, 99));  // replacing works in a full table
    ASSERT_EQ(entity->rows().row(slots - 1), smallRow(slots - 1, 99));
    ASSERT_EQ(walk(entity->rows()).rows.size(), slots);
    expectVerifies("t.table", slots);
    for (std::uint64_t key = 0; key < slots; ++key) {
      ASSERT_TRUE(entity->rows().rowDel(key));
    }
    expectVerifies("t.table", 0);
  }
}

INSTANTIATE_TEST_SUITE_P(AroundChunkEdges, GlintMapCapacity,
                         ::testing::Values(1U, 2U, 511U, 512U, 513U, 1024U, 1025U));

using GlintMapDeathTest = GlintMapTest;

TEST_F(GlintMapDeathTest, ARowBeyondTheLastSlotStopsTheProcessWithAClearText) {
  auto entity = state().mount<SmallRow>("t", 4);
  for (std::uint64_t key = 0; key < 8; ++key) {
    entity->rows().rowIs(smallRow(key, key));
  }
  EXPECT_DEATH(entity->rows().rowIs(smallRow(8, 8)),
               "a slot is free for the row: .*/t.table: all 8 slots are taken \\(nominal capacity "
               "4\\); the row cannot be stored");
  EXPECT_EQ(entity->rows().rowCount(), 8U);
}

// The versions at the bound mean that a slot is retired.
TEST_F(GlintMapDeathTest, ASlotsVersionStopsBeforeItsBound) {
  const std::string file = root() + "/t.table";
  {
    State first(root());
    first.mount<SmallRow>("t", 4)->rows().rowIs(smallRow(1, 1));
  }
  const Glint::Seq seq(Glint::Seq::kVersionLimit - 3, true, 0);
  const testing_support::Offsets at(4, 8, sizeof(SmallRow));
  const Glint::SealedRow<2> row{{1, 1, seq.word()}};
  testing_support::wordIs(file, at.row(0, 0), row.words);
  testing_support::wordIs(file, at.checksum(0, 0), row.checksum());
  testing_support::wordIs(file, at.slot(0), seq.word());
  auto entity = state().mount<SmallRow>("t", 4);
  entity->rows().rowIs(smallRow(1, 2));
  EXPECT_EQ(entity->rows().row(1)->value, 2U);
  EXPECT_DEATH(entity->rows().rowIs(smallRow(1, 3)), "the slot's version can rise.*t.table");
  EXPECT_TRUE(entity->rows().rowDel(1));
  EXPECT_EQ(Glint::verifyTable(file).retiredSlots, 0U);
  EXPECT_DEATH(entity->rows().rowIs(smallRow(4, 4)), "the slot's version can rise.*t.table");
}

TEST_F(GlintMapDeathTest, AReaderMountCannotWrite) {
  state().mount<SmallRow>("t", 4);
  State reader(root());
  auto entity = reader.mountReader<SmallRow>("t");
  EXPECT_DEATH(entity->rows().rowIs(smallRow(1, 1)), "the table is mounted for writing");
  EXPECT_DEATH(entity->rows().rowDel(1), "the table is mounted for writing");
  EXPECT_DEATH(entity->rows().control().scratchpadIs(1), "the table is mounted for writing");
}

TEST_F(GlintMapTest, MatchesAnOrdinaryMapUnderRandomOperations) {
  constexpr unsigned kSeed = 20;
  std::mt19937 random(kSeed);
  RecordProperty("seed", static_cast<int>(kSeed));
  std::map<std::uint64_t, RisingRow> model;
  auto entity = state().mount<RisingRow>("t", 300);
  for (std::uint64_t step = 0; step < 20000; ++step) {
    const std::uint64_t key = random() % 400;
    if (random() % 3 == 0) {
      ASSERT_EQ(entity->rows().rowDel(key), model.erase(key) == 1) << "step " << step;
    } else {
      entity->rows().rowIs(risingRow(key, step));
      model.insert_or_assign(key, risingRow(key, step));
    }
    const std::uint64_t other = random() % 400;
    ASSERT_EQ(entity->rows().has(other), model.contains(other)) << "step " << step;
    ASSERT_EQ(entity->rows().rowCount(), model.size()) << "step " << step;
  }
  EXPECT_EQ(walk(entity->rows()).rows, model);
  expectVerifies("t.table", static_cast<std::uint32_t>(model.size()));
}

// ---- iteration

TEST_F(GlintMapTest, AWalkYieldsEveryRowOnce) {
  auto entity = state().mount<OddRow>("t", 2000);
  for (std::uint32_t key = 0; key < 2000; ++key) {
    entity->rows().rowIs(oddRow(key, key));
  }
  const auto found = walk(entity->rows());
  EXPECT_EQ(found.steps, 2000U);
  EXPECT_EQ(found.rows.size(), 2000U);
}

TEST_F(GlintMapTest, AWalkSurvivesTheRemovalOfItsCurrentRowAndOfOthers) {
  auto entity = state().mount<OddRow>("t", 100);
  for (std::uint32_t key = 0; key < 100; ++key) {
    entity->rows().rowIs(oddRow(key, key));
  }
  std::map<std::uint32_t, int> seen;
  for (auto it = entity->rows().iterator(); it.valid(); it.advance()) {
    const std::uint32_t key = it.row().key;
    ++seen[key];
    EXPECT_TRUE(entity->rows().rowDel(key));
    if (key + 1 < 100 && key % 10 == 0) {
      entity->rows().rowDel(key + 1);  // ahead: must not be met any more
    }
    EXPECT_EQ(it.row(), oddRow(key, key));  // the iterator's copy stays
  }
  EXPECT_EQ(seen.size(), 90U);
  EXPECT_EQ(entity->rows().rowCount(), 0U);
}

TEST_F(GlintMapTest, AWalkThatReplacesEveryRowYieldsEachOnceWithItsFormerContents) {
  auto entity = state().mount<OddRow>("t", 100);
  for (std::uint32_t key = 0; key < 100; ++key) {
    entity->rows().rowIs(oddRow(key, 1));
  }
  std::size_t steps = 0;
  for (auto it = entity->rows().iterator(); it.valid(); it.advance()) {
    const std::uint32_t key = it.row().key;
    EXPECT_EQ(it.row(), oddRow(key, 1));
    entity->rows().rowIs(oddRow(key, 2));
    ++steps;
  }
  EXPECT_EQ(steps, 100U);
  EXPECT_EQ(entity->rows().row(42), oddRow(42, 2));
}

TEST_F(GlintMapTest, AWalkYieldsTheRowsThatStayOnceWhileOthersComeAndGo) {
  constexpr unsigned kSeed = 7;
  std::mt19937 random(kSeed);
  auto entity = state().mount<RisingRow>("t", 1000);
  for (std::uint64_t key = 0; key < 1000; ++key) {
    entity->rows().rowIs(risingRow(key, 1));
  }
  std::map<std::uint64_t, int> seen;
  for (auto it = entity->rows().iterator(); it.valid(); it.advance()) {
    ++seen[it.row().key];
    const std::uint64_t churn = 500 + random() % 1000;  // keys below 500 stay
    if (!entity->rows().rowDel(churn)) {
      entity->rows().rowIs(risingRow(churn, 2));
    }
  }
  for (std::uint64_t key = 0; key < 500; ++key) {
    EXPECT_EQ(seen[key], 1) << key;
  }
}

TEST_F(GlintMapTest, AWalkThatLooksAtSoManySlotsStopsBehindThemAndGoesOnFromThere) {
  auto entity = state().mount<OddRow>("t", 10);
  auto& rows = entity->rows();
  for (std::uint32_t key = 0; key < 8; ++key) {
    rows.rowIs(oddRow(key, key));
  }
  for (const std::uint32_t key : {0U, 1U, 2U, 4U, 5U, 6U}) {
    rows.rowDel(key);
  }
  auto it = rows.beforeFirst();
  const std::uint64_t before = Zev::WorkMeter::total();
  EXPECT_FALSE(it.advanceWithin(3)) << "its row is in the fourth slot";
  EXPECT_FALSE(it.valid());
  EXPECT_EQ(Zev::WorkMeter::total() - before, 3U);
  EXPECT_TRUE(it.advanceWithin(3));
  ASSERT_TRUE(it.valid());
  EXPECT_EQ(it.row().key, 3U);
  EXPECT_TRUE(it.advanceWithin(4)) << "the last slot that it may look at";
  ASSERT_TRUE(it.valid());
  EXPECT_EQ(it.row().key, 7U);
  auto second = it;
  EXPECT_FALSE(it.advanceWithin(11)) << "20 slots are in use";
  EXPECT_FALSE(it.valid());
  EXPECT_TRUE(second.advanceWithin(12)) << "the end is no pause";
  EXPECT_FALSE(second.valid());
}

TEST_F(GlintMapTest, AWalkWithinTheSlotsThatThereAreComesToItsEnd) {
  auto entity = state().mount<OddRow>("t", 10);
  auto& rows = entity->rows();
  for (std::uint32_t key = 0; key < 4; ++key) {
    rows.rowIs(oddRow(key, key));
  }
  for (std::uint32_t key = 0; key < 4; ++key) {
    rows.rowDel(key);
  }
  auto it = rows.beforeFirst();
  EXPECT_FALSE(it.advanceWithin(19)) << "20 slots are in use";
  auto another = rows.beforeFirst();
  EXPECT_TRUE(another.advanceWithin(20));
  EXPECT_FALSE(another.valid());
  auto third = rows.beforeFirst();
  EXPECT_TRUE(third.advanceWithin(21));
  EXPECT_FALSE(third.valid());
}

TEST_F(GlintMapTest, AWalkCanBeginAtAKey) {
  auto entity = state().mount<OddRow>("t", 10);
  for (std::uint32_t key = 0; key < 10; ++key) {
    entity->rows().rowIs(oddRow(key, key));
  }
  auto it = entity->rows().iteratorAt(4);
  ASSERT_TRUE(it.valid());
  EXPECT_EQ(it.row().key, 4U);
  std::size_t steps = 0;
  for (; it.valid(); it.advance()) {
    EXPECT_GE(it.row().key, 4U);  // slots of a fresh table are filled in turn
    ++steps;
  }
  EXPECT_EQ(steps, 6U);
  EXPECT_FALSE(entity->rows().iteratorAt(11).valid());
}

TEST_F(GlintMapTest, ARefreshedWalkShowsWhatStandsInItsPlaceNow) {
  auto entity = state().mount<OddRow>("t", 10);
  auto& rows = entity->rows();
  for (std::uint32_t key = 0; key < 3; ++key) {
    rows.rowIs(oddRow(key, key));
  }
  auto it = rows.iterator();
  rows.rowIs(oddRow(0, 50));
  EXPECT_EQ(it.row(), oddRow(0, 0));
  it.refresh();
  EXPECT_EQ(it.row(), oddRow(0, 50));
  rows.rowDel(0);
  rows.rowIs(oddRow(7, 7));  // takes the place
  it.refresh();
  EXPECT_EQ(it.row(), oddRow(7, 7));
  rows.rowDel(7);
  it.refresh();
  EXPECT_EQ(it.row(), oddRow(1, 1)) << "the next one";
  rows.rowDel(1);
  rows.rowDel(2);
  it.refresh();
  EXPECT_FALSE(it.valid());
}

// ---- readers and re-mounts in one process

TEST_F(GlintMapTest, AReaderSeesEveryChangeAtOnce) {
  auto writer = state().mount<OddRow>("t", 10);
  State other(root());
  auto reader = other.mountReader<OddRow>("t");
  EXPECT_EQ(reader->rows().capacity(), 10U);
  EXPECT_FALSE(reader->rows().isWriter());
  writer->rows().rowIs(oddRow(1, 1));
  EXPECT_EQ(reader->rows().row(1), oddRow(1, 1));
  writer->rows().rowIs(oddRow(1, 2));
  EXPECT_EQ(reader->rows().row(1), oddRow(1, 2));
  EXPECT_EQ(reader->rows().rowCount(), 1U);
  EXPECT_EQ(walk(reader->rows()).steps, 1U);
  writer->rows().rowDel(1);
  EXPECT_FALSE(reader->rows().has(1));
  EXPECT_EQ(reader->rows().rowCount(), 0U);
}

TEST_F(GlintMapTest, AReMountReplacesTheEntityAndTheOldOneGoesOnWorking) {
  auto before = state().mount<SmallRow>("t", 100);
  before->rows().rowIs(smallRow(1, 1));
  auto after = state().mount<SmallRow>("t", 100);
  EXPECT_NE(before, after);
  EXPECT_EQ(state().manager().getEntity("t"), after);
  for (std::uint64_t key = 2; key < 102; ++key) {  // both fill the same free slots in turn
    (key % 2 == 0 ? before : after)->rows().rowIs(smallRow(key, key));
  }
  EXPECT_EQ(before->rows().rowCount(), 101U);
  EXPECT_EQ(after->rows().rowCount(), 101U);
  EXPECT_EQ(walk(after->rows()).rows.size(), 101U);
  expectVerifies("t.table", 101);
}

TEST_F(GlintMapTest, AnEntityIsFoundByItsPathWithOrWithoutLeadingSlash) {
  auto entity = state().mount<SmallRow>("/a/b", 10);
  EXPECT_EQ(state().manager().getEntity("a/b"), entity);
  EXPECT_EQ(state().manager().getEntity("/a/b"), entity);
  EXPECT_EQ(state().manager().getEntity("a/c"), nullptr);
}

TEST_F(GlintMapTest, OneStateHasOneManager) {
  auto vanta = Zev::makeObject<Vanta::EntityManager>(root());
  auto other = Zev::makeObject<Vanta::EntityManager>(root());
  EXPECT_EQ(ZevSharedMem::getEntityManager(vanta), ZevSharedMem::getEntityManager(vanta));
  EXPECT_NE(ZevSharedMem::getEntityManager(vanta), ZevSharedMem::getEntityManager(other));
}

TEST_F(GlintMapTest, ACollectionIsReplacedInAMountInfoByName) {
  ZevGlint::MountInfo info(ZevGlint::ZevGlintType::reader);
  info.collectionInfoIs({"rows", 1});
  info.collectionInfoIs({"rows", 2});
  ASSERT_EQ(info.collectionInfo().size(), 1U);
  EXPECT_EQ(info.collectionInfo().front().capacity(), 2U);
}

}  // namespace
