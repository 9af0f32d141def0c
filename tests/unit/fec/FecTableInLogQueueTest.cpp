// SPDX-License-Identifier: Apache-2.0

// Handles of logged operations: how they wait in the table's queue, and how the hardware's reports
// release them, also when handlers and observers call back.

#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

#include "FecTestNames.h"

namespace {

using namespace fec_test;
using EntryHandle = FecTableSwTable::EntryHandle;
using HandlePtr = Pell::Ptr<EntryHandle>;
using AnyHandle = Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>;

constexpr Asic::UnitId kUnit{0};

class InLogQueue : public LeakCheckedTest {
 protected:
  FecTableSwTable& table(std::uint16_t unit = 0) { return agent_.table(unit); }
  FecHarness& agent() { return agent_; }
  Asic::OrderedSwTableStatus& status() { return *table().status(); }

  // A handle of that log version at the queue's end, whatever the log holds.
  HandlePtr enqueue(std::uint64_t version, std::uint32_t fecId = 0,
                    const FecTableSwTable::ResponseHandler& handler = nullptr) {
    HandlePtr handle = FecTableSwTable::entryHandleFactory(
        Asic::EntryVersion(), FecTableDataModelEntryKey(fecId), &table());
    handle->logVersionIs(LogVersion(version));
    handle->responseHandlerIs(handler);
    table().entryHandleInLogEnq(handle);
    return handle;
  }
  // A write without an interface, committed under the next log version.
  Pell::Ptr<EntryHandle const> commitWrite(std::uint32_t fecId,
                                           const FecTableSwTable::ResponseHandler& handler) {
    auto handle = table().entryWriteWithResponseHandler(
        FecHarness::key(fecId), FecHarness::entry("", fecId), nullptr, handler);
    agent_.run();
    return handle;
  }
  // Keys of the handles whose recorded handler has been called.
  std::vector<std::uint32_t> responded() const {
    std::vector<std::uint32_t> keys;
    for (const Response& response : agent_.responses) {
      keys.push_back(response.key.fecId());
    }
    return keys;
  }
  // Lets go of the table wherever it is held.
  void dropTable() {
    agent_.group()->swTableSet(FecTableConstants::kTableId)->swTableDel(kUnit);
    agent_.fec().swTableDel(kUnit);
  }
  static std::int64_t liveTables() { return Zev::trackerOf<FecTableSwTable>().live(); }

 private:
  FecHarness agent_;
};

// Hears of the queue's changes: the sequence numbers in the order of their publication.
class QueueObserver {
 public:
  explicit QueueObserver(FecTableSwTable& table, std::function<void()> onChange = nullptr)
      : table_(table),
        subscriber_([this, onChange = std::move(onChange)](Pell::Publisher*, Pell::Subscriber*,
                                                           short attributeId, const void* element,
                                                           const void*) {
          if (attributeId == FecTableSwTable::kEntryHandleInLogAttribute) {
            sequences_.push_back(*static_cast<const std::uint32_t*>(element));
            if (onChange) {
              onChange();
            }
          }
        }) {
    table_.publisher().subscriberAdd(subscriber_);
  }
  ~QueueObserver() { leave(); }
  QueueObserver(const QueueObserver&) = delete;
  QueueObserver& operator=(const QueueObserver&) = delete;

  void leave() {
    if (subscribed_) {
      subscribed_ = false;
      table_.publisher().subscriberRemove(subscriber_);
    }
  }
  // The table takes its publisher with it.
  void tableIsGone() { subscribed_ = false; }
  const std::vector<std::uint32_t>& sequences() const { return sequences_; }

 private:
  FecTableSwTable& table_;
  std::vector<std::uint32_t> sequences_;
  bool subscribed_ = true;
  Pell::Subscriber subscriber_;
};

// ---- The queue.

TEST_F(InLogQueue, ANewTablesQueueIsEmpty) {
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(table().entryHandleInLogFront());
  EXPECT_FALSE(table().entryHandleInLogBack());
  EXPECT_FALSE(table().entryHandleInLogDeq());
  EXPECT_FALSE(table().entryHandleInLog(1));
  EXPECT_FALSE(table().entryHandleInLogHas(1));
}

TEST_F(InLogQueue, HandlesAreNumberedFrom1AndLeaveInTheOrderInWhichTheyCame) {
  constexpr std::uint32_t kHandles = 30;  // in arrays of 8, 16 and 32
  std::vector<HandlePtr> handles;
  for (std::uint32_t i = 0; i < kHandles; ++i) {
    handles.push_back(enqueue(i));
    EXPECT_EQ(table().entryHandleInLogFront(), handles.front());
    EXPECT_EQ(table().entryHandleInLogBack(), handles.back());
  }
  for (std::uint32_t i = 0; i < kHandles; ++i) {
    EXPECT_EQ(table().entryHandleInLog(i + 1), handles[i]);
    EXPECT_TRUE(table().entryHandleInLogHas(i + 1));
  }
  for (std::uint32_t i = 0; i < kHandles; ++i) {
    EXPECT_EQ(table().entryHandleInLogDeq(), handles[i]);
  }
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
}

TEST_F(InLogQueue, ANumberOutsideTheQueuedRangeIsNull) {
  for (int i = 0; i < 10; ++i) {
    enqueue(1);
  }
  table().entryHandleInLogDeq();
  table().entryHandleInLogDeq();
  for (const unsigned outside : {0U, 1U, 2U, 11U, 0x7FFFFFFFU, 0x80000003U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(table().entryHandleInLog(outside)) << outside;
    EXPECT_FALSE(table().entryHandleInLogHas(outside)) << outside;
  }
  EXPECT_TRUE(table().entryHandleInLogHas(3));
  EXPECT_TRUE(table().entryHandleInLogHas(10));
}

TEST_F(InLogQueue, AQueueThatDrainsKeepsNumberingFromWhereItStopped) {
  enqueue(1);
  enqueue(2);
  table().entryHandleInLogDeq();
  table().entryHandleInLogDeq();
  const HandlePtr handle = enqueue(3);
  EXPECT_EQ(table().entryHandleInLog(3), handle);
}

TEST_F(InLogQueue, EveryChangeIsPublishedWithItsElementsNumber) {
  EXPECT_EQ(FecTableSwTable::kEntryHandleInLogAttribute, 8);
  EXPECT_EQ(table().fwkType().attribute("entryHandleInLog")->id, 8);
  const QueueObserver observer(table());
  enqueue(1);
  enqueue(2);
  table().entryHandleInLogDeq();
  table().entryHandleInLogDeq();
  table().entryHandleInLogDeq();  // nothing left, nothing to tell
  EXPECT_THAT(observer.sequences(), ElementsAre(1, 2, 1, 2));
}

TEST_F(InLogQueue, AnObserverFindsTheChangeDone) {
  std::vector<bool> had;
  const QueueObserver observer(table(), [&] { had.push_back(table().entryHandleInLogHas(1)); });
  enqueue(1);
  table().entryHandleInLogDeq();
  EXPECT_THAT(had, ElementsAre(true, false));
}

TEST_F(InLogQueue, TheQueuesTagIsATypeOfTheTable) {
  EXPECT_TRUE(std::is_class_v<FecTableSwTable::QE_EntryHandleInLog>);
}

// ---- Emptying it.

TEST_F(InLogQueue, DelAllWithoutObserverEmptiesTheQueueAndNumberingGoesOn) {
  for (int i = 0; i < 10; ++i) {
    enqueue(1, 5, agent().recordResponse());
  }
  table().entryHandleInLogDelAll();
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(table().entryHandleInLogFront());
  const HandlePtr handle = enqueue(1);
  EXPECT_EQ(table().entryHandleInLog(11), handle);
  EXPECT_THAT(responded(), IsEmpty());
}

TEST_F(InLogQueue, DelAllPublishesEachRemovalToAnObserverAndNumberingGoesOn) {
  for (int i = 0; i < 10; ++i) {
    enqueue(1, 5, agent().recordResponse());
  }
  const QueueObserver observer(table());
  table().entryHandleInLogDelAll();
  EXPECT_THAT(observer.sequences(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  const HandlePtr handle = enqueue(1);
  EXPECT_EQ(table().entryHandleInLog(11), handle);
  EXPECT_THAT(responded(), IsEmpty());
}

TEST_F(InLogQueue, DelAllOfAnEmptyQueuePublishesNothing) {
  const QueueObserver observer(table());
  table().entryHandleInLogDelAll();
  EXPECT_THAT(observer.sequences(), IsEmpty());
  EXPECT_EQ(table().entryHandleInLogBack(), nullptr);
}

TEST_F(InLogQueue, AnObserverThatLeavesDuringDelAllHearsNoMoreAndTheOthersHearAll) {
  for (int i = 0; i < 4; ++i) {
    enqueue(1);
  }
  QueueObserver* leaving = nullptr;
  QueueObserver first(table(), [&] { leaving->leave(); });
  leaving = &first;
  const QueueObserver second(table());
  table().entryHandleInLogDelAll();
  EXPECT_THAT(first.sequences(), ElementsAre(1));
  EXPECT_THAT(second.sequences(), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
}

TEST_F(InLogQueue, WhenTheLastObserverLeavesDuringDelAllTheQueueIsEmptiedAllTheSame) {
  for (int i = 0; i < 4; ++i) {
    enqueue(1);
  }
  QueueObserver* leaving = nullptr;
  QueueObserver observer(table(), [&] { leaving->leave(); });
  leaving = &observer;
  table().entryHandleInLogDelAll();
  EXPECT_THAT(observer.sequences(), ElementsAre(1));
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  const HandlePtr handle = enqueue(1);
  EXPECT_EQ(table().entryHandleInLog(5), handle);
}

TEST_F(InLogQueue, AnObserverMayDropTheLastReferenceToTheTableDuringDelAll) {
  for (int i = 0; i < 4; ++i) {
    enqueue(1);
  }
  FecTableSwTable& doomed = table();
  QueueObserver observer(doomed, [&] { dropTable(); });
  doomed.entryHandleInLogDelAll();
  observer.tableIsGone();
  EXPECT_THAT(observer.sequences(), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(liveTables(), 0);
}

TEST_F(InLogQueue, WhatAHandleTakesWithItFindsTheQueueEmptiedDuringDelAll) {
  std::vector<std::uint32_t> found;
  const auto atEnd = [&] {
    return std::shared_ptr<void>(nullptr,
                                 [&](void*) { found.push_back(table().entryHandlesInLog()); });
  };
  enqueue(1, 0, [keep = atEnd()](const AnyHandle&) {});
  enqueue(2, 0, [keep = atEnd()](const AnyHandle&) {});
  table().entryHandleInLogDelAll();
  EXPECT_THAT(found, ElementsAre(0, 0));
}

TEST_F(InLogQueue, TheTablesEndReleasesItsHandlesWithoutACallOrAPublication) {
  auto& handles = Zev::trackerOf<EntryHandle>();
  const std::int64_t before = handles.live();
  for (int i = 0; i < 10; ++i) {
    enqueue(1, 5, agent().recordResponse());
  }
  EXPECT_EQ(handles.live(), before + 10);
  QueueObserver observer(table());
  dropTable();
  observer.tableIsGone();
  EXPECT_EQ(liveTables(), 0);
  EXPECT_EQ(handles.live(), before);
  EXPECT_THAT(observer.sequences(), IsEmpty());
  EXPECT_THAT(responded(), IsEmpty());
}

// ---- Reports.

TEST_F(InLogQueue, TheReportIsTheTenthVirtualOperationOfTheTable) {
  EXPECT_EQ(virtualSlot(&FecTableSwTable::tableStatusVersion), 9);
}

TEST_F(InLogQueue, AReportReleasesTheHandlesUpToItsVersionInLogOrder) {
  for (const std::uint32_t fecId : {7U, 5U, 6U}) {
    commitWrite(fecId, agent().recordResponse());
  }
  EXPECT_EQ(table().entryHandlesInLog(), 3U);
  agent().report(2);
  EXPECT_THAT(responded(), ElementsAre(7, 5));
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(agent().responses[i].state, EntryState::done);
    EXPECT_EQ(agent().responses[i].version, LogVersion(i + 1));
  }
  EXPECT_EQ(table().entryHandleInLogFront()->key().fecId(), 6U);
  EXPECT_EQ(table().entryHandleInLogFront()->entryState(), EntryState::hwWritePending);
  agent().report(3);
  EXPECT_THAT(responded(), ElementsAre(7, 5, 6));
}

TEST_F(InLogQueue, AHandleIsReleasedByItsOwnVersionAndALaterOneAndNotByAnEarlierOne) {
  const HandlePtr first = enqueue(5);
  const HandlePtr second = enqueue(7);
  table().tableStatusVersion(LogVersion(4));
  EXPECT_EQ(first->entryState(), EntryState::notResolved);
  table().tableStatusVersion(LogVersion(5));
  EXPECT_EQ(first->entryState(), EntryState::done);
  EXPECT_EQ(second->entryState(), EntryState::notResolved);
  table().tableStatusVersion(LogVersion(8));
  EXPECT_EQ(second->entryState(), EntryState::done);
}

TEST_F(InLogQueue, VersionsCompareAsUnsigned64BitNumbers) {
  constexpr std::uint64_t kVersion = 0x8000000100000002;
  for (const std::uint64_t older :
       {0xFFFFFFFFULL, 0x7FFFFFFFFFFFFFFFULL, 0x80000000FFFFFFFFULL, 0x8000000100000001ULL}) {
    const HandlePtr handle = enqueue(kVersion);
    table().tableStatusVersion(LogVersion(older));
    EXPECT_EQ(table().entryHandlesInLog(), 1U) << older;
    table().tableStatusVersion(LogVersion(kVersion));
    EXPECT_EQ(table().entryHandlesInLog(), 0U);
  }
}

TEST_F(InLogQueue, AReportOlderThanTheFrontHandleReleasesNothingButCleansUpAndStartsAGeneration) {
  commitWrite(5, agent().recordResponse());
  commitWrite(6, agent().recordResponse());
  agent().report(1);
  agent().run();
  agent().responses.clear();
  agent().log().tableEntryLog()->entryLogConfigIs(
      LoamFec::FecTableDataModelLogGlintEntry(LogVersion(1), 0, kUnit, {}));
  ASSERT_EQ(agent().loop().pending(), 0U);
  table().tableStatusVersion(LogVersion(1));
  EXPECT_THAT(responded(), IsEmpty());
  EXPECT_EQ(table().entryHandlesInLog(), 1U);
  EXPECT_EQ(agent().log().entryLogConfigRows(), 1U);
  EXPECT_FALSE(agent().log().tableEntryLog()->entryLogConfig().has(LogVersion(1)));
  EXPECT_EQ(agent().loop().pending(), 1U);
}

TEST_F(InLogQueue, TheLogIsCleanedAndTheGenerationStartedBeforeAnyHandlerIsCalled) {
  bool called = false;
  commitWrite(5, [&](const AnyHandle&) {
    called = true;
    EXPECT_EQ(agent().log().prevTableVersion(), LogVersion(1));
    EXPECT_EQ(agent().log().entryLogConfigRows(), 0U);
    EXPECT_EQ(agent().loop().pending(), 1U);
    EXPECT_TRUE(status().pendingHwWrites());
  });
  agent().report(1);
  EXPECT_TRUE(called);
}

TEST_F(InLogQueue, AHandleHasLeftTheQueueAndIsDoneWhenItsHandlerIsCalled) {
  std::vector<std::uint32_t> left;
  const auto handler = [&](const AnyHandle& handle) {
    EXPECT_EQ(handle->entryState(), EntryState::done);
    left.push_back(table().entryHandlesInLog());
  };
  enqueue(1, 1, handler);
  enqueue(2, 2, handler);
  table().tableStatusVersion(LogVersion(2));
  EXPECT_THAT(left, ElementsAre(1, 0));
}

TEST_F(InLogQueue, AHandleWithoutAHandlerIsDoneAllTheSame) {
  const HandlePtr handle = enqueue(1);
  table().tableStatusVersion(LogVersion(1));
  EXPECT_EQ(handle->entryState(), EntryState::done);
}

TEST_F(InLogQueue, AHandleOfVersion0IsReleasedByTheNextReportOfAnyVersion) {
  const auto handle =
      table().entryRemoveWithResponseHandler(FecHarness::key(5), nullptr, agent().recordResponse());
  agent().run();
  EXPECT_EQ(handle->logVersion(), LogVersion(0));
  EXPECT_EQ(handle->entryState(), EntryState::hwWritePending);
  EXPECT_EQ(table().entryHandlesInLog(), 1U);
  table().tableStatusVersion(LogVersion(0));
  EXPECT_THAT(responded(), ElementsAre(5));
}

TEST_F(InLogQueue, AHandleOfVersion0WaitsForThoseInFrontOfIt) {
  enqueue(3, 1, agent().recordResponse());
  enqueue(0, 2, agent().recordResponse());
  table().tableStatusVersion(LogVersion(2));
  EXPECT_THAT(agent().responses, IsEmpty());
  table().tableStatusVersion(LogVersion(3));
  EXPECT_EQ(agent().responses.size(), 2U);
}

TEST_F(InLogQueue, OnlyAReportOfTheLogsLastVersionEndsThePendingWrites) {
  commitWrite(5, nullptr);
  commitWrite(6, nullptr);
  EXPECT_TRUE(status().pendingHwWrites());
  table().tableStatusVersion(LogVersion(1));
  EXPECT_TRUE(status().pendingHwWrites());
  table().tableStatusVersion(LogVersion(3));  // beyond the log: a report that nobody can mean
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  table().tableStatusVersion(LogVersion(2));  // and nothing is queued any more
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(InLogQueue, AReportOfTheLogsLastVersionEndsThePendingWritesOfAnEmptyQueueToo) {
  table().entryRemoveAll(nullptr);
  agent().run();
  ASSERT_EQ(table().entryHandlesInLog(), 0U);
  ASSERT_TRUE(status().pendingHwWrites());
  table().tableStatusVersion(LogVersion(1));
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(InLogQueue, EachUnitsHandlesWaitForTheReportToTheirOwnTable) {
  commitWrite(5, agent().recordResponse());
  table(1).entryWriteWithResponseHandler(FecHarness::key(6), FecHarness::entry(""), nullptr,
                                         agent().recordResponse());
  agent().run();
  table(0).tableStatusVersion(LogVersion(2));
  EXPECT_THAT(responded(), ElementsAre(5));
  EXPECT_FALSE(status().pendingHwWrites());  // one status for all units
  EXPECT_EQ(table(1).entryHandlesInLog(), 1U);
  table(1).tableStatusVersion(LogVersion(2));
  EXPECT_THAT(responded(), ElementsAre(5, 6));
}

TEST_F(InLogQueue, AReportTracesItsVersionAndEachHandleThatItReleases) {
  enqueue(1, 11);
  enqueue(2, 12);
  enqueue(9, 19);
  TraceRecorder traces({"FecTableSwTable"});
  table().tableStatusVersion(LogVersion(4));
  EXPECT_THAT(traces.textsOf("tableStatusVersion"),
              ElementsAre("tableVersion: 4", "Processing version: 4, key: 11",
                          "Processing version: 4, key: 12"));
  EXPECT_THAT(traces.texts(8), ElementsAre("tableVersion: 4"));
  EXPECT_THAT(traces.texts(3),
              ElementsAre("Processing version: 4, key: 11", "Processing version: 4, key: 12"));
  for (const TraceRecorder::Record& record : traces.records()) {
    EXPECT_EQ(record.className, "FecTableSwTable");
    EXPECT_EQ(record.file, "FecTableSwTable");
  }
}

TEST_F(InLogQueue, TheRemoveAllVersionIsPublishedWithItsOldValueOnlyWhenItChanges) {
  struct Change {
    short attributeId;
    bool hasElement;
    std::uint64_t oldValue;
  };
  std::vector<Change> changes;
  Pell::Subscriber subscriber([&](Pell::Publisher*, Pell::Subscriber*, short attributeId,
                                  const void* element, const void* oldValue) {
    changes.push_back(
        {attributeId, element != nullptr, static_cast<const MajorVersion*>(oldValue)->value()});
  });
  table().publisher().subscriberAdd(subscriber);
  table().transientRemoveAllVersionIs(MajorVersion(~std::uint64_t{0}));  // as it is
  EXPECT_EQ(changes.size(), 0U);
  table().transientRemoveAllVersionIs(MajorVersion(0x100000000));
  table().transientRemoveAllVersionIs(MajorVersion(0x100000000));
  table().transientRemoveAllVersionIs(MajorVersion(0));
  table().publisher().subscriberRemove(subscriber);
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].oldValue, ~std::uint64_t{0});
  EXPECT_EQ(changes[1].oldValue, 0x100000000U);
  EXPECT_EQ(changes[1].attributeId, FecTableSwTable::kTransientRemoveAllVersionAttribute);
  EXPECT_FALSE(changes[1].hasElement);
  EXPECT_EQ(table().transientRemoveAllVersion(), MajorVersion(0));
}

// ---- Handlers that call back.

TEST_F(InLogQueue, AHandlerMayWriteItsKeyAgainAndTheWriteWaitsForAReportOfItsOwn) {
  commitWrite(5, [&](const AnyHandle&) {
    table().entryWriteWithResponseHandler(FecHarness::key(5), FecHarness::entry("", 51), nullptr,
                                          agent().recordResponse());
    EXPECT_EQ(agent().log().tableVersion(), LogVersion(1));  // nothing is committed inside
  });
  agent().report(1);
  EXPECT_EQ(agent().group()->groupResolver()->resolverQueueLength(), 1U);
  EXPECT_FALSE(status().pendingHwWrites());
  agent().run();
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_THAT(responded(), IsEmpty());
  agent().report(2);
  EXPECT_THAT(responded(), ElementsAre(5));
  EXPECT_EQ(table().entryRead(FecHarness::key(5)).opaqueA, 51U);
}

TEST_F(InLogQueue, AHandlerMayRemoveItsKey) {
  commitWrite(5, [&](const AnyHandle&) {
    table().entryRemoveWithResponseHandler(FecHarness::key(5), nullptr, agent().recordResponse());
    EXPECT_FALSE(table().entryHas(FecHarness::key(5)));
  });
  agent().report(1);
  agent().run();
  agent().report(2);
  EXPECT_THAT(responded(), ElementsAre(5));
  EXPECT_FALSE(table().entryHas(FecHarness::key(5)));
  EXPECT_EQ(table().entrys(), 0U);
}

TEST_F(InLogQueue, AHandlerMayRemoveEverythingAndTheHandlesBehindItAreReleasedAllTheSame) {
  commitWrite(5, [&](const AnyHandle&) { table().entryRemoveAll(nullptr); });
  commitWrite(6, agent().recordResponse());
  agent().report(2);
  EXPECT_THAT(responded(), ElementsAre(6));
  agent().run();
  EXPECT_EQ(agent().log().tableVersion(), LogVersion(3));
  EXPECT_EQ(table().entrys(), 0U);
  EXPECT_EQ(table().entryHandlesInLog(), 0U);  // a remove-all leaves no handle
}

TEST_F(InLogQueue, AHandlerThatReportsALaterVersionReleasesTheNextHandlesInsideItsCall) {
  enqueue(1, 1, [&](const AnyHandle& handle) {
    agent().recordResponse()(handle);
    table().tableStatusVersion(LogVersion(3));
    EXPECT_THAT(responded(), ElementsAre(1, 2, 3));
  });
  enqueue(2, 2, agent().recordResponse());
  enqueue(3, 3, agent().recordResponse());
  enqueue(4, 4, agent().recordResponse());
  table().tableStatusVersion(LogVersion(2));
  EXPECT_THAT(responded(), ElementsAre(1, 2, 3));
  EXPECT_EQ(table().entryHandlesInLog(), 1U);
  EXPECT_EQ(agent().log().prevTableVersion(), LogVersion(3));
}

TEST_F(InLogQueue, AHandlerThatReportsTheSameVersionReleasesEachHandleOnce) {
  const auto handler = [&](const AnyHandle& handle) {
    agent().recordResponse()(handle);
    table().tableStatusVersion(LogVersion(3));
  };
  for (std::uint32_t version = 1; version <= 3; ++version) {
    enqueue(version, version, handler);
  }
  table().tableStatusVersion(LogVersion(3));
  EXPECT_THAT(responded(), ElementsAre(1, 2, 3));
}

TEST_F(InLogQueue, AHandlerThatReportsAnEarlierVersionMovesTheCursorBackAndTheReportGoesOn) {
  enqueue(1, 1, [&](const AnyHandle& handle) {
    agent().recordResponse()(handle);
    table().tableStatusVersion(LogVersion(1));
  });
  enqueue(2, 2, agent().recordResponse());
  table().tableStatusVersion(LogVersion(2));
  EXPECT_THAT(responded(), ElementsAre(1, 2));
  EXPECT_EQ(agent().log().prevTableVersion(), LogVersion(1));
}

TEST_F(InLogQueue, TheLastVersionIsReadAfterTheHandlersHaveRun) {
  // The handler logs another change: the report is not one of the log's last version any more.
  commitWrite(5, [&](const AnyHandle&) {
    agent().log().entryIs({}, {}, nullptr, kUnit);
    EXPECT_EQ(agent().log().tableVersion(), LogVersion(2));
  });
  agent().report(1);
  EXPECT_TRUE(status().pendingHwWrites());
}

TEST_F(InLogQueue, AHandlerThatReplacesItselfRunsToItsEndAndTheNewOneIsNotCalled) {
  std::vector<int> calls;
  const HandlePtr handle = enqueue(1, 1);
  const auto secret = std::make_shared<int>(42);
  handle->responseHandlerIs([&calls, handle = handle.get(), secret](const AnyHandle&) {
    handle->responseHandlerIs([&calls](const AnyHandle&) { calls.push_back(-1); });
    calls.push_back(*secret);  // what it captured is still there
  });
  table().tableStatusVersion(LogVersion(1));
  table().tableStatusVersion(LogVersion(1));
  EXPECT_THAT(calls, ElementsAre(42));
  EXPECT_EQ(secret.use_count(), 1);
  EXPECT_TRUE(handle->responseHandler());
}

TEST_F(InLogQueue, AHandlerMayEmptyTheQueue) {
  enqueue(1, 1, [&](const AnyHandle& handle) {
    agent().recordResponse()(handle);
    table().entryHandleInLogDelAll();
  });
  enqueue(2, 2, agent().recordResponse());
  table().tableStatusVersion(LogVersion(2));
  EXPECT_THAT(responded(), ElementsAre(1));
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
}

TEST_F(InLogQueue, AHandlerMayDropTheLastReferenceToItsTable) {
  // A request that still waits, and a handle beyond the report: both go unanswered with the table.
  FecTableSwTable& doomed = table();
  commitWrite(1, [&](const AnyHandle& handle) {
    agent().recordResponse()(handle);
    dropTable();
    EXPECT_EQ(liveTables(), 1);  // the report holds it
  });
  commitWrite(2, agent().recordResponse());
  commitWrite(3, agent().recordResponse());
  doomed.entryWriteWithResponseHandler(FecHarness::key(4), FecHarness::entry("eth1"), nullptr,
                                       agent().recordResponse());
  agent().run();
  ASSERT_EQ(agent().group()->groupResolver()->resolverQueueLength(), 1U);
  doomed.tableStatusVersion(LogVersion(2));
  EXPECT_EQ(liveTables(), 0);
  EXPECT_THAT(responded(), ElementsAre(1, 2));
  agent().run();
  EXPECT_THAT(responded(), ElementsAre(1, 2));
}

TEST_F(InLogQueue, AHandlerMayDropItsTableWhileTheGroupReportsToAllUnits) {
  table(1);
  commitWrite(1, [&](const AnyHandle&) { dropTable(); });
  table(1).entryWriteWithResponseHandler(FecHarness::key(2), FecHarness::entry(""), nullptr,
                                         agent().recordResponse());
  agent().run();
  agent().report(2);
  EXPECT_EQ(liveTables(), 1);
  EXPECT_THAT(responded(), ElementsAre(2));
}

TEST_F(InLogQueue, AHandleMayOutliveItsTableAndStillTellItsVersion) {
  const HandlePtr handle = enqueue(1);
  dropTable();
  EXPECT_EQ(liveTables(), 0);
  EXPECT_EQ(handle->entryTableVersion(),
            Asic::TableVersion(FecTableConstants::kTableId, LogVersion(1)));
}

// ---- Observers that call back.

TEST_F(InLogQueue, AnObserverThatReportsAgainInsideARemovalReleasesEachHandleOnce) {
  for (std::uint32_t version = 1; version <= 3; ++version) {
    enqueue(version, version, agent().recordResponse());
  }
  const QueueObserver observer(table(), [&] { table().tableStatusVersion(LogVersion(3)); });
  table().tableStatusVersion(LogVersion(3));
  EXPECT_THAT(responded(), ElementsAre(1, 2, 3));
  EXPECT_THAT(observer.sequences(), ElementsAre(1, 2, 3));
}

TEST_F(InLogQueue, AnObserverMayDropTheLastReferenceToTheTableInsideAReport) {
  enqueue(1, 1, agent().recordResponse());
  FecTableSwTable& doomed = table();
  QueueObserver observer(doomed, [&] { dropTable(); });
  doomed.tableStatusVersion(LogVersion(1));
  observer.tableIsGone();
  EXPECT_EQ(liveTables(), 0);
  EXPECT_THAT(responded(), ElementsAre(1));
}

TEST_F(InLogQueue, AnObserverThatWritesWhenAHandleEntersTheLogIsServedInTheNextWalk) {
  bool written = false;
  const QueueObserver observer(table(), [&] {
    if (!written) {
      written = true;
      table().entryWrite(FecHarness::key(6), FecHarness::entry(""), nullptr);
      EXPECT_EQ(agent().log().tableVersion(), LogVersion(1));
    }
  });
  commitWrite(5, nullptr);
  EXPECT_EQ(agent().log().tableVersion(), LogVersion(2));
  EXPECT_THAT(observer.sequences(), ElementsAre(1, 2));
}

}  // namespace
