// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FecTableFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

class FecTableReentrancyTest : public FecTableFixture {
 protected:
  using HandlePtr = Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>;

  // Queues a write that fails, whose handler does what the test says.
  Handle writeThatFails(std::uint32_t fecId, std::function<void()> reaction) {
    return table().entryWriteWithResponseHandler(
        key(fecId), FecTableDataModelEntry(), dependency(State::commitFailed),
        [react = std::move(reaction)](const HandlePtr&) { react(); });
  }
  Pell::Ptr<ScriptedHelper> helperIs() {
    auto helper = Zev::makeObject<ScriptedHelper>();
    table().swTableHelperIs(helper);
    return helper;
  }

  // A table of another unit that only the test holds.
  Pell::Ptr<FecTableSwTable> ownTable() {
    const Asic::UnitId unit(7);
    log().mountGlintConfig(unit);
    auto made = LoamFec::fecTableSwTableFactory(table().tableName(), table().tableId(), unit,
                                                table().status(), agent_.fec().entryLog(),
                                                table().groupResolver());
    made->intfIdToDestIdLinkageIs(LoamFec::fecTableIntfIdToDestIdLinkageFactory(
        made.get(), Zev::makeObject<RecordingResourceClient>()));
    return made;
  }
  static std::int64_t liveTables() { return Zev::trackerOf<FecTableSwTable>().live(); }
};

// Failure handlers.

TEST_F(FecTableReentrancyTest, AFailureHandlerMayWriteTheSameKey) {
  Handle second;
  writeThatFails(5, [&] {
    second = write(5, "", 2);
    EXPECT_EQ(second->entryState(), State::notResolved) << "committed by a later walk";
  });
  agent_.run();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->version().major(), 1U) << "the failed one is still pending";
  EXPECT_EQ(second->entryState(), State::hwWritePending);
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableReentrancyTest, AFailureHandlerMayRemove) {
  writeCommitted(6);
  writeThatFails(5, [&] { remove(6); });
  agent_.run();
  EXPECT_FALSE(committed(6));
  EXPECT_TRUE(nothingPending(6));
}

TEST_F(FecTableReentrancyTest, AFailureHandlerMayRemoveAllAndHealWhatFailed) {
  writeCommitted(6);
  writeThatFails(5, [&] { removeAll(); });
  agent_.run();
  EXPECT_FALSE(committed(6));
  EXPECT_EQ(pendingWrite(5), nullptr) << "the remove-all forgot the failed write";
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableReentrancyTest, AFailureHandlerMayStartAGeneration) {
  int walks = 0;
  writeThatFails(5, [&] {
    ++walks;
    resolver().updateGenId();
    resolver().updateGenId();
  });
  const Handle after = write(6);
  const std::size_t turns = agent_.loop().runUntilIdle();
  EXPECT_EQ(walks, 1);
  EXPECT_EQ(turns, 2U) << "the walk under way, and one more";
  EXPECT_EQ(after->entryState(), State::hwWritePending);
}

TEST_F(FecTableReentrancyTest, AFailureHandlerMayReportAndReadTheTable) {
  writeCommitted(6, "", 66);
  std::uint32_t read = 0;
  writeThatFails(5, [&] {
    read = table().entryRead(key(6)).opaqueA;
    agent_.reportAll();
  });
  agent_.run();
  EXPECT_EQ(read, 66U);
  EXPECT_THAT(responses(), SizeIs(1)) << "the write of 6 was applied inside the handler";
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
}

TEST_F(FecTableReentrancyTest, AFailureHandlerMayDropTheLastReferenceToItsTable) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  bool answered = false;
  owned->entryWriteWithResponseHandler(key(5), FecTableDataModelEntry(),
                                       dependency(State::commitFailed), [&](const HandlePtr&) {
                                         answered = true;
                                         owned = nullptr;
                                       });
  owned->entryWrite(key(6), FecTableDataModelEntry(), nullptr);
  const Handle neighbour = write(7);
  agent_.run();
  EXPECT_TRUE(answered);
  EXPECT_FALSE(owned);
  EXPECT_EQ(liveTables(), before - 1);
  EXPECT_EQ(neighbour->entryState(), State::hwWritePending) << "the walk goes on";
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableReentrancyTest, AHandlerMayBeTakenFromItsHandleWhileItRuns) {
  std::string text;
  const Handle failing = table().entryWriteWithResponseHandler(
      key(5), FecTableDataModelEntry(), dependency(State::commitFailed),
      [this, &text, own = std::string(100, 'x')](const HandlePtr& handle) {
        queued().front()->swTableEntry()->entryHandle()->responseHandlerIs({});
        EXPECT_FALSE(handle->responseHandler());
        text = own;
      });
  agent_.run();
  EXPECT_EQ(text, std::string(100, 'x')) << "a copy was called";
}

TEST_F(FecTableReentrancyTest, AHandlerMayDropEverythingElseThatWaits) {
  const Handle before = write(4, "eth1");
  writeThatFails(5, [this] {
    resolver().resolverQueueDelIf([](const Asic::ResolverEntry&) { return true; });
  });
  const Handle after = write(6);
  agent_.run();
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
  EXPECT_EQ(before->entryState(), State::notResolved);
  EXPECT_EQ(after->entryState(), State::notResolved);
}

// Calls that work from shared memory.

// Tells, at the first change it hears of, how many tables there are when the test's own reference
// has gone: the call under way must hold one.
class DropAtFirstChange {
 public:
  DropAtFirstChange(Pell::Publisher& publisher, Pell::Ptr<FecTableSwTable>& owned)
      : publisher_(publisher), subscriber_([this, &owned](auto...) {
          if (owned) {
            owned = nullptr;
            tablesThen_ = Zev::trackerOf<FecTableSwTable>().live();
          }
        }) {
    publisher_.subscriberAdd(subscriber_);
  }
  ~DropAtFirstChange() { publisher_.subscriberRemove(subscriber_); }
  DropAtFirstChange(const DropAtFirstChange&) = delete;
  DropAtFirstChange& operator=(const DropAtFirstChange&) = delete;
  // Nothing: no change came.
  std::optional<std::int64_t> tablesThen() const { return tablesThen_; }

 private:
  Pell::Publisher& publisher_;
  std::optional<std::int64_t> tablesThen_;
  Pell::Subscriber subscriber_;
};

class TableHeldTest : public FecTableReentrancyTest {
 protected:
  // Two entries of two interfaces are committed in the table that only the test holds.
  Pell::Ptr<FecTableSwTable> filledTable() {
    auto owned = ownTable();
    for (const std::uint32_t fecId : {5U, 6U}) {
      const Pell::String intf = fecId == 5 ? "eth1" : "eth2";
      client(*owned).handle(intf)->contentsAre(State::done, {fecId, 0, 0});
      owned->entryWrite(key(fecId), FecHarness::entry(intf), nullptr);
    }
    agent_.run();
    return owned;
  }
  static RecordingResourceClient& client(const FecTableSwTable& of) {
    return dynamic_cast<RecordingResourceClient&>(*of.intfIdToDestIdLinkage()->resTblClient());
  }
};

TEST_F(TableHeldTest, WhileItIsCleared) {
  auto owned = filledTable();
  const Pell::Ptr<LoamFec::FecTableIntfIdToDestIdLinkage> linkage = owned->intfIdToDestIdLinkage();
  const std::int64_t before = liveTables();
  {
    const DropAtFirstChange drop(linkage->publisher(), owned);
    FecTableSwTable* const plain = owned.get();
    plain->clearTable(true);
    EXPECT_EQ(drop.tablesThen(), before);
  }
  EXPECT_EQ(liveTables(), before - 1);
}

TEST_F(TableHeldTest, WhileItIsRestored) {
  auto owned = filledTable();
  const auto linkage = LoamFec::fecTableIntfIdToDestIdLinkageFactory(
      owned.get(), Zev::makeObject<RecordingResourceClient>());
  owned->intfIdToDestIdLinkageIs(linkage);
  const std::int64_t before = liveTables();
  {
    const DropAtFirstChange drop(linkage->publisher(), owned);
    FecTableSwTable* const plain = owned.get();
    plain->restoreEntries();
    EXPECT_EQ(drop.tablesThen(), before);
  }
  EXPECT_EQ(liveTables(), before - 1);
}

TEST_F(TableHeldTest, WhileAnEntryIsUpdated) {
  auto owned = filledTable();
  client(*owned).handle("eth1")->contentsAre(State::done, {77, 0, 0});
  const std::int64_t before = liveTables();
  {
    const DropAtFirstChange drop(agent_.group()->groupLog()->publisher(), owned);
    FecTableSwTable* const plain = owned.get();
    const auto handle = plain->updateEntry(key(5));
    EXPECT_EQ(drop.tablesThen(), before);
    EXPECT_EQ(handle->entryTableVersion().logVersion(), Asic::LogVersion(3));
  }
  EXPECT_EQ(liveTables(), before - 1);
}

// Success handlers.

TEST_F(FecTableReentrancyTest, ASuccessHandlerMayWriteRemoveAndRemoveAll) {
  table().entryWriteWithResponseHandler(key(5), FecTableDataModelEntry(), nullptr,
                                        [this](const HandlePtr&) {
                                          write(5, "", 2);
                                          remove(6);
                                        });
  table().entryWriteWithResponseHandler(key(6), FecTableDataModelEntry(), nullptr,
                                        [this](const HandlePtr&) { removeAll(); });
  agent_.run();
  agent_.reportAll();
  EXPECT_EQ(table().entryHandlesInLog(), 0U) << "what they asked for waits";
  agent_.run();
  EXPECT_EQ(log().entrys(table().unitId()), 0U) << "the remove-all came last";
  EXPECT_EQ(logVersion(), 5U);
}

TEST_F(FecTableReentrancyTest, ASuccessHandlerMayReportWhatStandsBehindIt) {
  std::vector<std::uint32_t> order;
  for (const std::uint32_t fecId : {5U, 6U, 7U}) {
    table().entryWriteWithResponseHandler(key(fecId), FecTableDataModelEntry(), nullptr,
                                          [this, fecId, &order](const HandlePtr&) {
                                            order.push_back(fecId);
                                            if (fecId == 5) {
                                              table().tableStatusVersion(Asic::LogVersion(2));
                                            }
                                          });
  }
  agent_.run();
  table().tableStatusVersion(Asic::LogVersion(3));
  EXPECT_THAT(order, ElementsAre(5, 6, 7)) << "each once, in log order";
}

TEST_F(FecTableReentrancyTest, ASuccessHandlerMayDropTheLastReferenceToItsTable) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  int answers = 0;
  for (const std::uint32_t fecId : {5U, 6U}) {
    owned->entryWriteWithResponseHandler(key(fecId), FecTableDataModelEntry(), nullptr,
                                         [&](const HandlePtr&) {
                                           ++answers;
                                           owned = nullptr;
                                         });
  }
  agent_.run();
  FecTableSwTable* const plain = owned.get();
  plain->tableStatusVersion(Asic::LogVersion(2));
  EXPECT_EQ(answers, 2) << "the report was carried through";
  EXPECT_EQ(liveTables(), before - 1);
}

TEST_F(FecTableReentrancyTest, AHandlerThatCapturesItsTableKeepsItUntilItsHandleGoes) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  owned->entryWriteWithResponseHandler(key(5), FecTableDataModelEntry(), nullptr,
                                       [owned](const HandlePtr&) {});
  agent_.run();
  Pell::Ptr<FecTableSwTable::EntryHandle> handle = owned->entryHandleInLogFront();
  FecTableSwTable* const plain = owned.get();
  owned = nullptr;
  EXPECT_EQ(liveTables(), before) << "table, queue, handle, handler and table are a circle";
  plain->tableStatusVersion(Asic::LogVersion(1));
  EXPECT_EQ(liveTables(), before) << "the handler stays in the handle that was answered";
  handle = nullptr;
  EXPECT_EQ(liveTables(), before - 1);
}

TEST_F(FecTableReentrancyTest, ATableEndsWhenTheReportReleasesTheHandleThatAloneHeldIt) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  bool answered = false;
  owned->entryWriteWithResponseHandler(key(5), FecTableDataModelEntry(), nullptr,
                                       [owned, &answered](const HandlePtr&) { answered = true; });
  agent_.run();
  FecTableSwTable* const plain = owned.get();
  owned = nullptr;
  plain->tableStatusVersion(Asic::LogVersion(1));
  EXPECT_TRUE(answered);
  EXPECT_EQ(liveTables(), before - 1);
}

TEST_F(FecTableReentrancyTest, ATableEndsWhenTheCommitReleasesTheHandlerThatAloneHeldIt) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  bool answered = false;
  owned->entryWriteWithResponseHandler(key(5), FecTableDataModelEntry(),
                                       dependency(State::commitFailed),
                                       [owned, &answered](const HandlePtr&) {
                                         answered = true;
                                         owned->transientAddEntryDel(key(5));
                                       });
  owned = nullptr;
  agent_.run();
  EXPECT_TRUE(answered);
  EXPECT_EQ(liveTables(), before - 1);
}

// Helper hooks.

TEST_F(FecTableReentrancyTest, AHookThatWritesTheSameKeyLeavesTheNewerVersionPending) {
  const auto helper = helperIs();
  Handle newer;
  helper->onSuccess = [&](const Pell::Ptr<FecTableEntryWrapper>& wrapper) {
    if (!newer) {
      newer = write(5, "", wrapper->entry().opaqueA + 1, dependency(State::notResolved));
    }
  };
  const Handle older = write(5, "", 1);
  agent_.run();
  EXPECT_EQ(older->entryState(), State::hwWritePending);
  EXPECT_EQ(committedMark(5), 1U);
  ASSERT_TRUE(newer);
  EXPECT_EQ(newer->version().major(), 1U);
  ASSERT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingWrite(5)->entryHandle(), newer) << "the cleaning left it";
  EXPECT_EQ(pendingVersion(5), 1U);
}

TEST_F(FecTableReentrancyTest, AHookThatRemovesTheSameKeyLeavesTheRemovePending) {
  const auto helper = helperIs();
  helper->onSuccess = [&](const auto&) { remove(5, dependency(State::notResolved)); };
  write(5);
  agent_.run();
  EXPECT_TRUE(committed(5));
  EXPECT_EQ(pendingWrite(5), nullptr);
  EXPECT_NE(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingVersion(5), 1U);
}

TEST_F(FecTableReentrancyTest, AFailureHookMayWriteTheSameKey) {
  const auto helper = helperIs();
  Handle newer;
  helper->onFailure = [&](const auto&) { newer = write(5, "", 2); };
  const Handle refused = write(5, "eth1", 1);
  resourceIs("eth1", State::resourceFailed);
  EXPECT_EQ(refused->entryState(), State::commitFailed);
  ASSERT_TRUE(newer);
  EXPECT_EQ(newer->entryState(), State::hwWritePending);
  EXPECT_EQ(committedMark(5), 2U);
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableReentrancyTest, WhatAHookMakesOfTheEntryIsWhatIsLogged) {
  const auto helper = helperIs();
  helper->onSuccess = [](const Pell::Ptr<FecTableEntryWrapper>& wrapper) {
    FecTableDataModelEntry altered = wrapper->entry();
    altered.opaqueA = 99;
    wrapper->entryIs(altered);
  };
  write(5, "", 1);
  agent_.run();
  EXPECT_EQ(committedMark(5), 99U);
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableReentrancyTest, AHookThatAltersTheKeyHasTheOtherKeyLogged) {
  const auto helper = helperIs();
  helper->onSuccess = [](const Pell::Ptr<FecTableEntryWrapper>& wrapper) {
    FecTableDataModelEntry altered = wrapper->entry();
    altered.key = key(6);
    wrapper->entryIs(altered);
  };
  const Handle written = write(5);
  agent_.run();
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_TRUE(committed(6));
  EXPECT_FALSE(committed(5));
  EXPECT_NE(pendingWrite(5), nullptr) << "the records of the request's key stay";
  EXPECT_EQ(pendingVersion(5), 0U);
}

TEST_F(FecTableReentrancyTest, AHookMayReplaceTheHelperAndTheLinkage) {
  auto helper = helperIs();
  const auto client = Zev::makeObject<RecordingResourceClient>();
  helper->onSuccess = [&](const auto&) {
    helper = nullptr;
    table().swTableHelperIs(LoamFec::fecTableSwTableHelperBaseFactory());
    table().intfIdToDestIdLinkageIs(
        LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), client));
  };
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  const Handle written = write(5, "eth1");
  const Handle next = write(6);
  agent_.run();
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_EQ(next->entryState(), State::hwWritePending) << "by the helper that does nothing";
  EXPECT_THAT(client->acks, IsEmpty()) << "the commit under way keeps the linkage it began with";
}

TEST_F(FecTableReentrancyTest, AHookMayDropTheLastReferenceToItsTable) {
  auto owned = ownTable();
  const std::int64_t before = liveTables();
  const auto helper = Zev::makeObject<ScriptedHelper>();
  helper->onSuccess = [&](const auto&) { owned = nullptr; };
  owned->swTableHelperIs(helper);
  owned->entryWrite(key(5), FecTableDataModelEntry(), nullptr);
  owned->entryWrite(key(6), FecTableDataModelEntry(), nullptr);
  agent_.run();
  EXPECT_EQ(liveTables(), before - 1);
  EXPECT_THAT(helper->successes, ElementsAre(5));
  EXPECT_TRUE(log().entryHas(key(5), Asic::UnitId(7))) << "the commit was carried through";
}

// Observers.

TEST_F(FecTableReentrancyTest, AnObserverThatRemovesItselfHearsNothingMore) {
  std::optional<TableObserver> observer;
  std::vector<TableChange> heard;
  observer.emplace(table(), [&](const TableChange& change) {
    heard.push_back(change);
    observer->remove();
  });
  const TableObserver other(table());
  write(5, "eth1");
  EXPECT_THAT(heard, ElementsAre(TableChange{kVersion, 5}));
  EXPECT_THAT(other.changes(), ElementsAre(TableChange{kVersion, 5}, TableChange{kAdd, 5}));
}

TEST_F(FecTableReentrancyTest, AnObserverMayEndItselfInTheMiddleOfARemoveAll) {
  write(5, "eth1");
  write(6, "eth1");
  auto observer = std::make_unique<TableObserver>(table());
  const TableObserver ender(table(), [&](const TableChange&) { observer = nullptr; });
  removeAll();
  EXPECT_FALSE(observer);
  EXPECT_THAT(table().transientAddEntry(), IsEmpty());
}

TEST_F(FecTableReentrancyTest, AnObserverMayWriteTheKeyWhoseVersionIsBeingStored) {
  Handle inner;
  bool reacted = false;
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kVersion && !std::exchange(reacted, true)) {
      inner = write(5, "", 2);
    }
  });
  const Handle outer = write(5, "", 1);
  EXPECT_EQ(outer->version().major(), 0U);
  EXPECT_EQ(inner->version().major(), 1U);
  EXPECT_EQ(pendingWrite(5)->entryHandle(), outer) << "it was stored last";
  EXPECT_EQ(queued()[0]->swTableEntry()->entryHandle(), inner) << "and queued last";
  agent_.run();
  EXPECT_EQ(committedMark(5), 1U);
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableReentrancyTest, AnObserverMayReplaceTheLinkageOfTheWriteThatItHears) {
  const auto other = Zev::makeObject<RecordingResourceClient>();
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kAdd) {
      table().intfIdToDestIdLinkageIs(
          LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), other));
    }
  });
  write(5, "eth1");
  EXPECT_THAT(agent_.client().requests, SizeIs(1)) << "the call goes on with what it began with";
  EXPECT_THAT(other->requests, IsEmpty());
}

TEST_F(FecTableReentrancyTest, AnObserverOfARemoveAllMayWriteAndRemove) {
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    write(fecId, "eth1");
  }
  bool reacted = false;
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kAdd && !std::exchange(reacted, true)) {
      remove(2);
      remove(50);
    }
  });
  removeAll();
  EXPECT_TRUE(reacted);
  EXPECT_THAT(table().transientAddEntry(), IsEmpty());
  EXPECT_THAT(table().transientRemoveEntry(), IsEmpty()) << "they came before the remove-all";
  EXPECT_EQ(resolver().resolverQueueLength(), 6U);
  agent_.run();
  EXPECT_EQ(resolver().resolverQueueLength(), 3U) << "the writes without destination";
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
}

TEST_F(FecTableReentrancyTest, AnObserverMayRemoveAllInTheMiddleOfARemoveAll) {
  write(5, "eth1");
  write(6, "eth1");
  bool reacted = false;
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kAdd && !std::exchange(reacted, true)) {
      removeAll();
    }
  });
  removeAll();
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(1)) << "two are pending";
  agent_.run();
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
  EXPECT_EQ(logVersion(), 2U);
}

TEST_F(FecTableReentrancyTest, AnObserverOfTheCleaningSeesTheKeyNowhereAndMayWriteIt) {
  std::vector<bool> reads;
  bool reacted = false;
  Handle inner;
  const Handle outer = write(5, "", 1);
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kAdd && !std::exchange(reacted, true)) {
      reads.push_back(table().entryHas(key(5)));
      inner = write(5, "", 2);
    }
  });
  agent_.run();
  EXPECT_THAT(reads, ElementsAre(false)) << "cleaned and not yet logged";
  EXPECT_EQ(outer->entryState(), State::hwWritePending);
  EXPECT_EQ(inner->entryState(), State::hwWritePending);
  EXPECT_EQ(committedMark(5), 2U);
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableReentrancyTest, AnObserverOfTheLogQueueMayReportAtOnce) {
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kInLog && table().entryHandlesInLog() > 0) {
      table().tableStatusVersion(log().tableVersion());
    }
  });
  write(5);
  remove(5);
  agent_.run();
  ASSERT_THAT(responses(), SizeIs(2));
  EXPECT_EQ(responses()[0].version, Asic::LogVersion(1));
  EXPECT_EQ(responses()[1].version, Asic::LogVersion(2));
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
}

TEST_F(FecTableReentrancyTest, AnObserverMayDropTheLastReferenceToTheTableInsideAnyMutator) {
  using Mutator = std::function<void(FecTableSwTable&)>;
  const Mutator mutators[] = {
      [](FecTableSwTable& at) { at.entryWrite(key(5), FecTableDataModelEntry(), nullptr); },
      [](FecTableSwTable& at) { at.entryRemove(key(5), nullptr); },
      [](FecTableSwTable& at) { at.entryRemoveAll(nullptr); },
      [](FecTableSwTable& at) { at.transientAddEntryDelAll(); },
      [](FecTableSwTable& at) { at.transientRemoveEntryDelAll(); },
      [](FecTableSwTable& at) { at.transientVersionForKeyDelAll(); },
  };
  for (const Mutator& mutate : mutators) {
    auto owned = ownTable();
    for (const std::uint32_t fecId : {1U, 2U}) {
      owned->entryWrite(key(fecId), FecTableDataModelEntry(), nullptr);
      owned->entryRemove(key(fecId + 10), nullptr);
    }
    const std::int64_t before = liveTables();
    std::optional<std::int64_t> tablesThen;
    TableObserver observer(*owned, [&](const TableChange&) {
      if (owned) {
        owned = nullptr;
        tablesThen = liveTables();
      }
    });
    FecTableSwTable* const plain = owned.get();
    mutate(*plain);
    observer.release();
    EXPECT_EQ(tablesThen, before) << "the call holds it";
    EXPECT_EQ(liveTables(), before - 1) << "it ended with the call";
    resolver().resolverQueueDelIf([plain](const Asic::ResolverEntry& entry) {
      return dynamic_cast<const FecTableResolverEntry&>(entry).swTable() == plain;
    });
  }
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableReentrancyTest, AnObserverMayEmptyTheMapsThatARequestIsChanging) {
  const TableObserver observer(table(), [&](const TableChange& change) {
    if (change.attribute == kVersion) {
      table().transientAddEntryDelAll();
      table().transientRemoveEntryDelAll();
    }
  });
  write(5, "eth1");
  remove(6);
  EXPECT_EQ(pendingWrite(5), nullptr);
  EXPECT_NE(pendingRemove(6), nullptr) << "stored after the last version";
  EXPECT_EQ(observer.changes().back(), (TableChange{kRemove, 6}));
}

// What a dying container releases.

TEST_F(FecTableReentrancyTest, AClosureThatGoesWithAPendingWriteFindsTheMapWithoutIt) {
  std::vector<std::uint32_t> seen;
  const auto look = [this, &seen](std::nullptr_t) {
    seen.push_back(table().transientAddEntry().size());
    seen.push_back(table().entrys());
  };
  const auto store = [this](FecTableSwTable::ResponseHandler handler) {
    const auto handle = FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(0), &table());
    handle->responseHandlerIs(std::move(handler));
    table().transientAddEntryIs(
        FecTableEntryWrapper::FecTableEntryWrapperIs(FecTableDataModelEntry(), handle));
  };
  const auto looking = [&look] {
    return [held = std::shared_ptr<void>(nullptr, look)](const HandlePtr&) {};
  };
  store(looking());
  store({});
  EXPECT_THAT(seen, ElementsAre(1, 1)) << "replaced: the new one is in";
  seen.clear();
  store(looking());
  table().transientAddEntryDel(key(0));
  EXPECT_THAT(seen, ElementsAre(0, 0));
  seen.clear();
  store(looking());
  table().transientAddEntryDelAll();
  EXPECT_THAT(seen, ElementsAre(0, 0));
}

}  // namespace
