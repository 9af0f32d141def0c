// SPDX-License-Identifier: Apache-2.0

// Reads, counts and walks: the table as it will be once everything that waits has been committed.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "EntryLogFixture.h"
#include "LinkageFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;
using Entry = LoamFec::FecTableDataModelEntry;
using LoamFec::FecTableSwTableIteratorState;
using Ids = std::vector<std::uint32_t>;

class ReadsTest : public LinkageFixture {
 protected:
  using State = Pell::Ptr<LoamFec::FecTableDataModelSwTableIteratorState>;

  // Entries without an interface, whose mark is their key.
  void commitAll(std::initializer_list<std::uint32_t> fecIds) {
    for (const std::uint32_t fecId : fecIds) {
      write(fecId, "", fecId);
    }
    agent_.run();
  }
  static Ids rest(const State& state) {
    Ids ids;
    for (Entry entry = state->maybeUpdateCurrentEntry(); !state->atEnd();
         entry = state->maybeUpdateCurrentEntry()) {
      ids.push_back(entry.key.fecId());
    }
    return ids;
  }
  Ids walked() { return rest(table().initIterState()); }
  Ids walkedFrom(std::uint32_t fecId) { return rest(table().initIterStateFromKey(key(fecId))); }
  // The pending writes in the order of their map.
  Ids pendingOrder() {
    Ids ids;
    table().transientAddEntry().forEach(
        [&ids](const auto& pending, const auto&) { ids.push_back(pending.fecId()); });
    return ids;
  }
  static Ids joined(Ids first, const Ids& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }
  Pell::Ptr<FecTableSwTableIteratorState> typed(const State& state) {
    return Pell::dynamicPtrCast<FecTableSwTableIteratorState>(state);
  }
  ConfigRows& rows() { return log().tableConfigGlint(table().unitId())->swTableEntries(); }
};
using ReadsDeathTest = ReadsTest;

// Point reads.

TEST_F(ReadsTest, AKeyThatIsWrittenAndNotCommittedReadsAsWritten) {
  write(5, "eth1", 7);
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 7U);
  EXPECT_EQ(table().entryRead(key(5)).key, key(5));
  EXPECT_TRUE(table().entryHas(key(5)));
}

TEST_F(ReadsTest, APendingWriteHidesTheOlderCommittedEntry) {
  writeCommitted(5, "", 1);
  write(5, "eth1", 2);
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 2U);
  EXPECT_EQ(table().entryRead(key(5)).intfId, Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(table().entryFromConfig(key(5)).opaqueA, 1U) << "what is committed";
  EXPECT_EQ(table().entrys(), 1U);
}

TEST_F(ReadsTest, ACommittedEntryReadsWithTheInterfaceOfItsResourceKeys) {
  commitOn("eth1", {5});
  const Entry read = table().entryRead(key(5));
  EXPECT_EQ(read.intfId, Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(read.resolvedDest.first, 100U);
  EXPECT_THAT(read, IsEq(table().entryFromConfig(key(5))));
  EXPECT_THAT(read, IsEq(table().entry(key(5))));
}

TEST_F(ReadsTest, AKeyWithAPendingRemoveReadsAsTheDefaultAlthoughTheLogHoldsIt) {
  commitAll({5, 6});
  remove(5);
  EXPECT_THAT(table().entryRead(key(5)), IsEq(Entry()));
  EXPECT_FALSE(table().entryHas(key(5)));
  EXPECT_TRUE(committed(5));
  EXPECT_EQ(table().entrys(), 1U);
  EXPECT_EQ(walked(), Ids{6});
}

TEST_F(ReadsTest, AKeyThatNoSourceHoldsReadsAsTheDefault) {
  EXPECT_THAT(table().entryRead(key(5)), IsEq(Entry()));
  EXPECT_FALSE(table().entryHas(key(5)));
  EXPECT_THAT(table().entryFromConfig(key(5)), IsEq(Entry()));
}

TEST_F(ReadsTest, WhileARemoveAllIsPendingACommittedEntryIsReadableButNotThere) {
  commitAll({1, 2, 3});
  removeAll();
  write(2, "eth1", 22);
  write(9, "eth1", 99);
  EXPECT_EQ(table().entrys(), 2U);
  EXPECT_THAT(walked(), UnorderedElementsAre(2U, 9U));
  EXPECT_FALSE(table().entryHas(key(1)));
  EXPECT_TRUE(table().entryHas(key(2)));
  EXPECT_TRUE(table().entryHas(key(9)));
  EXPECT_EQ(table().entryRead(key(1)).opaqueA, 1U) << "readable until the remove-all commits";
  EXPECT_EQ(table().entryRead(key(2)).opaqueA, 22U);
  agent_.run();
  EXPECT_THAT(table().entryRead(key(1)), IsEq(Entry()));
  EXPECT_EQ(table().entrys(), 2U);
}

TEST_F(ReadsTest, ARemoveAllForgetsAPendingRemoveAndTheEntryIsReadableByKeyAgain) {
  commitAll({1});
  remove(1);
  ASSERT_THAT(table().entryRead(key(1)), IsEq(Entry()));
  removeAll();
  EXPECT_EQ(table().entryRead(key(1)).opaqueA, 1U) << "until one of the two commits";
  EXPECT_FALSE(table().entryHas(key(1)));
  agent_.run();
  EXPECT_THAT(table().entryRead(key(1)), IsEq(Entry()));
}

TEST_F(ReadsTest, ARemoveThatFollowsAPendingRemoveAllHidesItsKeyFromReadsToo) {
  commitAll({1, 2});
  removeAll();
  remove(1);
  EXPECT_THAT(table().entryRead(key(1)), IsEq(Entry()));
  EXPECT_EQ(table().entryRead(key(2)).opaqueA, 2U);
  EXPECT_EQ(table().entrys(), 0U) << "the remove is not counted off a second time";
}

TEST_F(ReadsTest, AWriteAfterARemoveOfTheKeyReadsAsWritten) {
  commitAll({5});
  remove(5);
  write(5, "eth1", 8);
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 8U);
  EXPECT_TRUE(table().entryHas(key(5)));
  EXPECT_EQ(table().entrys(), 1U);
}

TEST_F(ReadsTest, ADeletedRowThatIsNotCleanedIsNeitherReadNorCountedNorWalked) {
  commitAll({5, 6});
  remove(5);
  agent_.run();
  ASSERT_TRUE(rows().row(key(5))->isDeleted());
  EXPECT_THAT(table().entryRead(key(5)), IsEq(Entry()));
  EXPECT_FALSE(table().entryHas(key(5)));
  EXPECT_EQ(table().entrys(), 1U);
  EXPECT_EQ(walked(), Ids{6});
  EXPECT_EQ(walkedFrom(5), Ids());
  EXPECT_EQ(table().getTableEntries_py()->tableEntries().size(), 1U);
}

TEST_F(ReadsTest, ADeletedRowsConfigurationIsTheDefaultWithTheOldInterface) {
  commitOn("eth1", {5});
  remove(5);
  agent_.run();
  const Entry entry = table().entryFromConfig(key(5));
  EXPECT_EQ(entry.intfId, Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(entry.key, key(0));
  EXPECT_EQ(entry.resolvedDest.first, 0xFFFFU);
}

// Counts.

TEST_F(ReadsTest, TheCountAddsNewWritesAndTakesRemovesOfCommittedKeysOff) {
  EXPECT_EQ(table().entrys(), 0U);
  remove(50);  // of nothing
  EXPECT_EQ(table().entrys(), 0U);
  commitAll({1, 2, 3});
  EXPECT_EQ(table().entrys(), 3U);
  write(3, "eth1");  // rewrite
  write(4, "eth1");  // new
  remove(1);         // committed
  remove(60);        // never there
  EXPECT_EQ(table().entrys(), 3U);
  agent_.run();
  EXPECT_EQ(table().entrys(), 3U);
}

// Traces.

TEST_F(ReadsTest, BothReadsTraceUnderTheNameEntryReadAndThenTheGenericStep) {
  writeCommitted(5);
  const TraceRecorder recorder({"FecTableSwTable"});
  table().entryRead(key(5));
  table().entry(key(5));
  EXPECT_EQ(recorder.textsOf("entryRead"), (Texts{" key: 5", " key: 5"}));
  EXPECT_EQ(recorder.textsOf("entryReadGeneric"), (Texts{"key: 5", "key: 5"}));
  EXPECT_EQ(recorder.textsOf("entryFromConfig"), (Texts{"key: 5", "key: 5"}));
  EXPECT_EQ(recorder.texts(8).size(), 6U);
  EXPECT_EQ(recorder.texts().size(), 6U);
  EXPECT_EQ(recorder.find("key: 5")->file, "FecTableSwTable");
  EXPECT_EQ(recorder.find("key: 5")->className, "FecTableSwTable");
}

TEST_F(ReadsTest, AMissedReadIsTracedAtLevel1) {
  const TraceRecorder recorder({"FecTableSwTable"});
  table().entryRead(key(9));
  EXPECT_EQ(recorder.texts(1), Texts{"Failed to find entry for key: 9"});
  EXPECT_EQ(recorder.find("Failed to find entry for key: 9")->function, "entryReadGeneric");
}

TEST_F(ReadsTest, AskingForAKeyIsTracedAtLevel8) {
  const TraceRecorder recorder({"FecTableSwTable"});
  table().entryHas(key(9));
  EXPECT_EQ(recorder.texts(8), Texts{"key: 9"});
  EXPECT_EQ(recorder.textsOf("entryHas"), Texts{"key: 9"});
}

// Walks.

TEST_F(ReadsTest, AnEmptyTableIsAtItsEndAtOnceAndStaysThere) {
  const State state = table().initIterState();
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(state->maybeUpdateCurrentEntry(), IsEq(Entry()));
    EXPECT_TRUE(state->atEnd());
  }
}

TEST_F(ReadsTest, AWalkYieldsPendingWritesInTheirOrderAndThenWhatNothingPendingShadows) {
  commitAll({1, 2, 3, 4});
  write(3, "eth1", 33);
  write(8, "eth1");
  write(7, "eth1");
  remove(2);
  const Ids order = pendingOrder();
  ASSERT_THAT(order, UnorderedElementsAre(3U, 7U, 8U));
  const State state = table().initIterState();
  for (const std::uint32_t fecId : order) {
    const Entry entry = state->maybeUpdateCurrentEntry();
    EXPECT_EQ(entry.key, key(fecId));
    EXPECT_EQ(entry.opaqueA, fecId == 3 ? 33U : 0U);
    EXPECT_EQ(state->currentEntry().key, key(fecId));
    EXPECT_TRUE(typed(state)->fromTransient());
    EXPECT_FALSE(typed(state)->inTblCfg());
  }
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  EXPECT_TRUE(typed(state)->inTblCfg());
  EXPECT_FALSE(typed(state)->fromTransient());
  EXPECT_EQ(rest(state), Ids{4});
  EXPECT_THAT(state->currentEntry(), IsEq(Entry()));
}

TEST_F(ReadsTest, AnEntryOfKey0IsYieldedAndIsNotTheEnd) {
  commitAll({0, 1});
  write(2, "eth1");
  EXPECT_EQ(walked(), (Ids{2, 0, 1}));
  EXPECT_EQ(table().getTableEntries_py()->tableEntries().size(), 3U);
  remove(2);
  write(0, "eth1");
  EXPECT_EQ(walked(), (Ids{0, 1}));
}

TEST_F(ReadsTest, StartingAtAPendingKeyYieldsThePendingWritesFromThereAndAllCommittedEntries) {
  commitAll({1, 2});
  for (const std::uint32_t fecId : {7U, 8U, 9U}) {
    write(fecId, "eth1");
  }
  const Ids order = pendingOrder();
  for (std::size_t start = 0; start < order.size(); ++start) {
    const State state = table().initIterStateFromKey(key(order[start]));
    EXPECT_TRUE(typed(state)->positioned());
    EXPECT_FALSE(typed(state)->inTblCfg());
    const Ids fromStart(order.begin() + static_cast<std::ptrdiff_t>(start), order.end());
    EXPECT_EQ(rest(state), joined(fromStart, {1, 2}));
  }
}

TEST_F(ReadsTest, StartingAtACommittedKeySkipsPendingWritesAndTheEntriesBeforeIt) {
  commitAll({1, 2, 3, 4});
  write(9, "eth1");
  write(3, "eth1");
  const State state = table().initIterStateFromKey(key(2));
  EXPECT_FALSE(typed(state)->positioned());
  EXPECT_TRUE(typed(state)->inTblCfg());
  EXPECT_EQ(rest(state), (Ids{2, 4})) << "3 is shadowed though it is not yielded";
}

TEST_F(ReadsTest, StartingAtACommittedKeyWithAPendingRemoveYieldsWhatFollows) {
  commitAll({1, 2, 3});
  remove(2);
  EXPECT_EQ(walkedFrom(2), Ids{3});
}

TEST_F(ReadsTest, StartingAtAnAbsentKeyIsAtTheEnd) {
  commitAll({1});
  write(2, "eth1");
  const State state = table().initIterStateFromKey(key(5));
  EXPECT_THAT(state->maybeUpdateCurrentEntry(), IsEq(Entry()));
  EXPECT_TRUE(state->atEnd());
}

TEST_F(ReadsTest, AWalkStartedUnderAPendingRemoveAllYieldsPendingWritesOnlyAndClearsItsFlags) {
  commitAll({1, 2});
  removeAll();
  write(7, "eth1");
  const State state = table().initIterStateFromKey(key(7));
  EXPECT_TRUE(typed(state)->removeAllPending());
  EXPECT_EQ(rest(state), Ids{7});
  EXPECT_FALSE(typed(state)->removeAllPending());
  EXPECT_FALSE(typed(state)->positioned());
  EXPECT_FALSE(typed(state)->inTblCfg());
  EXPECT_EQ(walkedFrom(1), Ids()) << "a committed start key is hidden";
  EXPECT_EQ(walked(), Ids{7});
}

TEST_F(ReadsTest, TheRemoveAllFlagIsTakenWhenTheWalkStarts) {
  commitAll({1, 2});
  const State before = table().initIterState();
  removeAll();
  const State during = table().initIterState();
  EXPECT_EQ(rest(before), (Ids{1, 2}));
  agent_.run();
  commitAll({3});
  EXPECT_EQ(rest(during), Ids());
}

TEST_F(ReadsDeathTest, AStateInTheConfigurationPhaseWithPendingWritesLeftStopsTheProcess) {
  write(1, "eth1");
  const auto state = typed(table().initIterState());
  state->inTblCfgIs(true);
  EXPECT_DEATH(state->maybeUpdateCurrentEntry(), "assertion failed: !iterState_->inTblCfg\\(\\)\n");
}

TEST_F(ReadsTest, TheIteratorFormYieldsTheSame) {
  commitAll({1, 2});
  write(9, "eth1", 90);
  Ids ids;
  for (auto at = table().entryIteratorConst(); at; ++at) {
    ids.push_back(at->key.fecId());
    EXPECT_EQ((*at).opaqueA, at->opaqueA);
  }
  EXPECT_EQ(ids, (Ids{9, 1, 2}));
  auto from = table().entryIteratorConst(key(2));
  EXPECT_EQ(from->key, key(2));
  EXPECT_FALSE(++from);
  EXPECT_FALSE(table().entryIteratorConst(key(77)));
}

TEST_F(ReadsTest, AWalkHoldsItsTable) {
  const std::uint32_t references = table().references();
  const State state = table().initIterState();
  EXPECT_EQ(table().references(), references + 1);
}

// Requests and commits between two steps.

TEST_F(ReadsTest, WritesThatArriveInTheConfigurationPhaseDoNotBringThePendingPhaseBack) {
  commitAll({1, 2, 3});
  for (const bool fromKey : {false, true}) {
    const State state = fromKey ? table().initIterStateFromKey(key(1)) : table().initIterState();
    EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
    for (std::uint32_t fecId = 100; fecId < 130; ++fecId) {
      write(fecId, "eth1");
    }
    EXPECT_EQ(rest(state), (Ids{2, 3}));
    for (std::uint32_t fecId = 100; fecId < 130; ++fecId) {
      remove(fecId);
    }
    agent_.run();
  }
}

TEST_F(ReadsTest, AWriteThatArrivesBeforeTheFirstStepIsYielded) {
  const State state = table().initIterState();
  write(4, "eth1");
  EXPECT_EQ(rest(state), Ids{4});
}

TEST_F(ReadsTest, ARemoveAllBetweenTwoStepsForgetsThePendingWritesAndLaterOnesDoNotComeBack) {
  commitAll({1, 2});
  for (std::uint32_t fecId = 10; fecId < 20; ++fecId) {
    write(fecId, "eth1");
  }
  const Ids order = pendingOrder();
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(order[0]));
  removeAll();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1)) << "started before the remove-all";
  write(30, "eth1");
  EXPECT_EQ(rest(state), Ids{2});
}

TEST_F(ReadsTest, APendingWriteThatIsYieldedAndThenCommittedIsYieldedASecondTime) {
  commitAll({1});
  write(5);
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(5));
  agent_.run();
  EXPECT_EQ(rest(state), (Ids{1, 5}));
}

TEST_F(ReadsTest, APendingWriteThatIsCommittedBeforeItsTurnIsYieldedAmongTheCommittedEntries) {
  for (const bool emptyBefore : {true, false}) {
    const std::uint32_t first = emptyBefore ? 10 : 20;
    write(first);
    write(first + 1);
    const Ids order = pendingOrder();
    const State state = table().initIterState();
    EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(order[0]));
    agent_.run();
    EXPECT_THAT(rest(state), ::testing::Contains(order[1]).Times(1));
  }
}

TEST_F(ReadsTest, AnElementThatIsGoneWhenItsTurnComesIsSkipped) {
  commitAll({1, 2, 3});
  for (const std::uint32_t fecId : {11U, 12U, 13U}) {
    write(fecId, "eth1");
  }
  const Ids order = pendingOrder();
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(order[0]));
  remove(order[1]);
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(order[2]));
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  remove(2);
  agent_.run();
  agent_.reportAll();
  EXPECT_FALSE(rows().has(key(2)));
  EXPECT_EQ(rest(state), Ids{3});
}

TEST_F(ReadsTest, AnEntryThatIsRewrittenBeforeItsTurnIsYieldedAsItIsThen) {
  commitAll({1, 2});
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  writeCommitted(2, "", 222);
  EXPECT_EQ(state->maybeUpdateCurrentEntry().opaqueA, 222U);
  EXPECT_EQ(rest(state), Ids());
}

TEST_F(ReadsTest, UnderRandomRequestsAndCommitsEveryStayingEntryIsYieldedExactlyOnce) {
  constexpr std::uint32_t kSeed = 20261122;
  constexpr std::uint32_t kStaying = 40;  // committed 1000.., pending 2000..; requests use 0 to 99
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 engine(kSeed);
  const auto below = [&engine](std::uint32_t bound) {
    return static_cast<std::uint32_t>(engine() % bound);
  };
  for (std::uint32_t i = 0; i < kStaying; ++i) {
    write(1000 + i);
    write(below(100));
  }
  agent_.run();
  for (std::uint32_t i = 0; i < kStaying; ++i) {
    write(2000 + i, "eth1");
    write(below(100), "eth2");
  }
  const auto disturb = [&] {
    for (std::uint32_t i = below(4); i > 0; --i) {
      switch (below(4)) {
        case 0:
          write(below(100), "eth2");
          break;
        case 1:
          write(below(100));
          break;
        case 2:
          remove(below(100));
          break;
        default:
          agent_.run();
          agent_.reportAll();
          break;
      }
    }
  };
  for (int walk = 0; walk < 6; ++walk) {
    std::map<std::uint32_t, int> yielded;
    const State state = table().initIterState();
    disturb();
    for (Entry entry = state->maybeUpdateCurrentEntry(); !state->atEnd();
         entry = state->maybeUpdateCurrentEntry()) {
      ++yielded[entry.key.fecId()];
      disturb();
    }
    for (std::uint32_t i = 0; i < kStaying; ++i) {
      EXPECT_EQ(yielded[1000 + i], 1) << 1000 + i << " in walk " << walk;
      EXPECT_EQ(yielded[2000 + i], 1) << 2000 + i << " in walk " << walk;
    }
  }
}

TEST_F(ReadsTest, AWalkGoesOnOverTheMountItStartedOn) {
  commitAll({1, 2, 3});
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  log().mountGlintConfig(table().unitId());  // a fresh entity for the same rows
  EXPECT_EQ(rest(state), (Ids{2, 3}));
}

TEST_F(ReadsTest, AUnitWithoutAConfigurationTableYieldsItsPendingWritesAlone) {
  commitAll({1});
  write(2, "eth1");
  log().tableConfigGlintDel(table().unitId());
  EXPECT_EQ(walked(), Ids{2});
}

// Corruption.

TEST_F(ReadsTest, CorruptionDuringTheWalkIsReportedAndEndsIt) {
  commitAll({1, 2, 3, 4});
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  RowFile<ConfigRow>(rows()).damageRow(key(3));
  EXPECT_EQ(rest(state), Ids{2});
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_EQ(walked(), (Ids{1, 2, 4})) << "the damaged row is out of use";
}

TEST_F(ReadsTest, TheRowWhoseTurnItIsMayBeDamagedToo) {
  commitAll({1, 2, 3});
  const State state = table().initIterState();
  EXPECT_EQ(state->maybeUpdateCurrentEntry().key, key(1));
  RowFile<ConfigRow>(rows()).damageRow(key(2));
  EXPECT_EQ(rest(state), Ids());
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

TEST_F(ReadsTest, AWalkThatBeginsAtADamagedRowIsAtItsEnd) {
  commitAll({1, 2});
  RowFile<ConfigRow>(rows()).damageRow(key(1));
  EXPECT_EQ(walked(), Ids());
  EXPECT_EQ(rows().corruptionCount(), 1U);
  RowFile<ConfigRow>(rows()).damageRow(key(2));
  EXPECT_EQ(walkedFrom(2), Ids());
  EXPECT_EQ(rows().corruptionCount(), 2U);
}

TEST_F(ReadsTest, ADamagedRowReadsAsAbsent) {
  commitAll({1, 2});
  RowFile<ConfigRow>(rows()).damageRow(key(1));
  EXPECT_THAT(table().entryRead(key(1)), IsEq(Entry()));
  EXPECT_FALSE(table().entryHas(key(1)));
  EXPECT_EQ(table().entryRead(key(2)).opaqueA, 2U);
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

// What is committed alone.

TEST_F(ReadsTest, AKeyHasARowFromItsCommitUntilTheHardwareHasAppliedItsRemove) {
  write(1, "", 7);
  EXPECT_FALSE(table().hasRow(key(1))) << "pending alone";
  EXPECT_EQ(table().rows(), 0U);
  agent_.run();
  ASSERT_TRUE(table().hasRow(key(1)));
  EXPECT_EQ(table().row(key(1))->logEntry().opaqueA, 7U);
  EXPECT_FALSE(table().row(key(1))->isDeleted());
  EXPECT_EQ(table().rows(), 1U);
  remove(1);
  EXPECT_FALSE(table().row(key(1))->isDeleted()) << "the remove is pending";
  agent_.run();
  ASSERT_TRUE(table().hasRow(key(1)));
  EXPECT_TRUE(table().row(key(1))->isDeleted());
  EXPECT_EQ(table().rows(), 1U);
  agent_.reportAll();
  EXPECT_FALSE(table().hasRow(key(1)));
  EXPECT_EQ(table().rows(), 0U);
}

TEST_F(ReadsTest, ADamagedRowIsNoRow) {
  commitAll({1, 2});
  RowFile<ConfigRow>(rows()).damageRow(key(1));
  EXPECT_FALSE(table().hasRow(key(1)));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_FALSE(table().hasRow(key(1)));
  EXPECT_EQ(rows().corruptionCount(), 1U) << "it is out of use";
  EXPECT_TRUE(table().hasRow(key(2)));
}

TEST_F(ReadsTest, EachCommittedEntryIsVisitedAndNothingThatIsPendingOrDeleted) {
  commitAll({1, 2, 3});
  remove(2);
  agent_.run();
  remove(3);
  write(4, "", 4);
  Ids met;
  EXPECT_TRUE(
      table().forEachCommitted([&met](const ConfigRow& row) { met.push_back(row.key().fecId()); }));
  EXPECT_EQ(met, (Ids{1, 3}));
}

TEST_F(ReadsTest, TheCommittedEntriesBehindADamagedRowAreVisitedAndTheCallerIsTold) {
  commitAll({1, 2, 3});
  RowFile<ConfigRow>(rows()).damageRow(key(2));
  Ids met;
  const auto visit = [&met](const ConfigRow& row) { met.push_back(row.key().fecId()); };
  EXPECT_FALSE(table().forEachCommitted(visit)) << "an entry that was not met may be there";
  EXPECT_EQ(met, (Ids{1, 3}));
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_TRUE(table().forEachCommitted(visit)) << "the damaged row is out of use";
  EXPECT_EQ(met, (Ids{1, 3, 1, 3}));
}

TEST_F(ReadsTest, AVisitOfCommittedEntriesMayUnmountThem) {
  commitAll({1, 2});
  Ids met;
  EXPECT_TRUE(table().forEachCommitted([&](const ConfigRow& row) {
    met.push_back(row.key().fecId());
    log().tableConfigGlintDel(table().unitId());
  }));
  EXPECT_EQ(met, (Ids{1, 2}));
}

// Snapshot.

TEST_F(ReadsTest, AWalkYieldsWholeEntriesTheirInterfaceIncluded) {
  agent_.client().handle("eth1")->contentsAre(EntryState::done, {100, 21, 31});
  writeCommitted(0xFFFF'0001, "eth1", 7);
  const auto at = table().entryIteratorConst();
  ASSERT_TRUE(static_cast<bool>(at));
  EXPECT_THAT(*at, IsEq(table().entryRead(key(0xFFFF'0001))));
  EXPECT_EQ(at->intfId, Wirex::IntfId::fromName("eth1"));
}

TEST_F(ReadsTest, TheSnapshotHoldsWhatAWalkYields) {
  commitAll({1, 2, 3});
  write(2, "eth1", 22);
  remove(3);
  const auto snapshot = table().getTableEntries_py();
  const auto& entries = snapshot->tableEntries();
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_THAT(*entries.find(key(1)), IsEq(table().entryRead(key(1))));
  EXPECT_EQ(entries.find(key(2))->opaqueA, 22U);
  agent_.run();
  writeCommitted(4);
  EXPECT_EQ(entries.size(), 2U) << "it does not follow the table";
}

TEST_F(ReadsTest, ASnapshotsEntriesAreReplacedAndRemovedByKey) {
  const auto snapshot = Zev::makeObject<LoamFec::SwTableEntries_py>();
  Entry entry;
  entry.key = key(1);
  snapshot->tableEntriesIs(entry);
  entry.opaqueA = 5;
  snapshot->tableEntriesIs(entry);
  EXPECT_EQ(snapshot->tableEntries().size(), 1U);
  EXPECT_EQ(snapshot->tableEntries().find(key(1))->opaqueA, 5U);
  entry.key = key(2);
  snapshot->tableEntriesIs(entry);
  snapshot->tableEntriesDel(key(1));
  snapshot->tableEntriesDel(key(1));
  EXPECT_FALSE(snapshot->tableEntries().has(key(1)));
  snapshot->tableEntriesDelAll();
  EXPECT_THAT(snapshot->tableEntries(), IsEmpty());
  EXPECT_EQ(snapshot->fwkType().attributes.at(0).name, "tableEntries");
}

TEST_F(ReadsTest, AnIteratorStateIsMadeByItsFactory) {
  const Pell::Ptr<LoamFec::FecTableSwTable const> held(&table());
  const auto made = LoamFec::fecTableSwTableIteratorStateFactory(held);
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(made->fwkType().name, "LoamFec::FecTableSwTableIteratorState");
  EXPECT_FALSE(made->fromTransient());
  EXPECT_FALSE(made->positioned());
  EXPECT_FALSE(made->inTblCfg());
  EXPECT_FALSE(made->removeAllPending());
}

}  // namespace
