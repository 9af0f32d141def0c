// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FecTableFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

class FecTableRequestTest : public FecTableFixture {
 protected:
  static std::uint64_t major(const Handle& handle) { return handle->version().major(); }
  static std::uint16_t minor(const Handle& handle) { return handle->version().minor(); }
};

// Versions.

TEST_F(FecTableRequestTest, WritesOfAKeyThatArePendingTogetherAreCountedFromZero) {
  TraceRecorder traces({"FecTableSwTable"});
  EXPECT_EQ(major(write(5, "eth1")), 0U);
  EXPECT_THAT(traces, HasTrace(8, " Key: 5 not found in entry version collection"));
  traces.clear();
  EXPECT_EQ(major(write(5, "eth1")), 1U);
  EXPECT_EQ(major(write(5, "eth1")), 2U);
  EXPECT_THAT(traces, ::testing::Not(HasTrace(8, " Key: 5 not found in entry version collection")));
  EXPECT_EQ(major(write(6, "eth1")), 0U) << "each key counts for itself";
  EXPECT_EQ(pendingVersion(5), 2U);
  EXPECT_EQ(pendingVersion(6), 0U);
}

TEST_F(FecTableRequestTest, TheCountStartsAgainOnceNothingOfTheKeyIsPending) {
  EXPECT_EQ(major(write(5)), 0U);
  EXPECT_EQ(major(write(5)), 1U);
  agent_.run();
  ASSERT_TRUE(nothingPending(5));
  EXPECT_EQ(major(write(5)), 0U);
}

TEST_F(FecTableRequestTest, TheSixteenBitPartIsCarriedOverUnchanged) {
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(41, 7));
  const Handle written = write(5, "eth1");
  EXPECT_EQ(major(written), 42U);
  EXPECT_EQ(minor(written), 7U);
  const Handle removed = remove(5);
  EXPECT_EQ(major(removed), 43U);
  EXPECT_EQ(minor(removed), 7U);
}

TEST_F(FecTableRequestTest, AnInvalidStoredVersionStopsAWrite) {
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(kInvalid, 0));
  EXPECT_DEATH(write(5), "assertion failed: currEntryVersion\\.valid\\(\\)");
}

TEST_F(FecTableRequestTest, AnInvalidStoredVersionStopsARemove) {
  table().transientVersionForKeyIs(key(5), Asic::EntryVersion(kInvalid, 0));
  EXPECT_DEATH(remove(5), "assertion failed: currEntryVersion\\.valid\\(\\)");
}

// Write.

TEST_F(FecTableRequestTest, AWriteWithoutHandlerTracesItsStepsInOrder) {
  const TraceRecorder traces({"FecTableSwTable"});
  table().entryWrite(key(5), FecHarness::entry("eth1"), nullptr);
  EXPECT_THAT(lines(traces),
              ElementsAre("8 entryWrite| key: 5|", "8 entryWriteWithResponseHandler| key: 5|",
                          "8 entryWriteGeneric|key: 5|",
                          "8 entryWriteGeneric| Key: 5 not found in entry version collection|",
                          "2 entryWriteGeneric|Done processing write for key: 5 |",
                          "8 maybeUpdateSuspend||"));
}

TEST_F(FecTableRequestTest, AWritePublishesVersionThenTheRemoveItReplacesThenItself) {
  remove(5);
  const TableObserver observer(table());
  write(5, "eth1");
  EXPECT_THAT(observer.changes(),
              ElementsAre(TableChange{kVersion, 5}, TableChange{kRemove, 5}, TableChange{kAdd, 5}));
}

TEST_F(FecTableRequestTest, AWriteIsQueuedWithItsWrapperAndDependency) {
  const auto other = dependency(State::notResolved);
  FecTableDataModelEntry entry = FecHarness::entry("eth1", 77);
  entry.flagA = 3;
  entry.clientDest.first = 9;
  entry.resolvedDest.third = 8;
  const Handle handle =
      table().entryWriteWithResponseHandler(key(5), entry, other, agent_.recordResponse());
  ASSERT_EQ(queued().size(), 1U);
  const QueuedEntry queuedEntry = queued().front();
  EXPECT_EQ(queuedEntry->dependantEntryHandle(), other);
  EXPECT_EQ(queuedEntry->flags(), Asic::EntryFlags(0));
  EXPECT_EQ(queuedEntry->swTable(), &table());
  EXPECT_TRUE(queuedEntry->hasNotificationActive());
  const auto& wrapper = queuedEntry->swTableEntry();
  EXPECT_EQ(wrapper.get(), pendingWrite(5));
  EXPECT_TRUE(wrapper->hasNotificationActive());
  EXPECT_EQ(wrapper->entryHandle(), handle);
  entry.key = key(5);
  EXPECT_THAT(wrapper->entry(), IsEq(entry));
  EXPECT_EQ(logVersion(), 0U) << "a request does not touch the log";
}

TEST_F(FecTableRequestTest, TheKeyOfTheRequestWinsOverTheKeyInTheEntry) {
  FecTableDataModelEntry entry = FecHarness::entry("eth1");
  entry.key = key(6);
  table().entryWrite(key(5), entry, nullptr);
  ASSERT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingWrite(5)->key(), key(5));
  EXPECT_EQ(pendingWrite(6), nullptr);
}

TEST_F(FecTableRequestTest, AWriteReturnsAHandleThatIsNotResolvedYet) {
  const Handle handle = write(5, "eth1");
  EXPECT_EQ(handle->key(), key(5));
  EXPECT_EQ(handle->table(), &table());
  EXPECT_EQ(handle->entryState(), State::notResolved);
  EXPECT_EQ(handle->logVersion(), Asic::LogVersion());
  EXPECT_TRUE(handle->hasNotificationActive());
}

TEST_F(FecTableRequestTest, AWriteAsksForItsInterfaceOnce) {
  write(5, "eth1");
  ASSERT_EQ(agent_.client().requests.size(), 1U);
  EXPECT_EQ(agent_.client().requests.front().intfId(), Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(pendingWrite(5)->intfIdResPtr(), agent_.client().handle("eth1"));
}

TEST_F(FecTableRequestTest, AWriteIsQueuedWhateverTheResourceTableAnswers) {
  agent_.client().answersNull = true;
  write(5, "eth1");
  EXPECT_EQ(queued().size(), 1U);
  EXPECT_FALSE(pendingWrite(5)->intfIdResPtr());
}

TEST_F(FecTableRequestTest, AWriteWithoutLinkageStopsTheProcess) {
  table().intfIdToDestIdLinkageIs(nullptr);
  EXPECT_DEATH(write(5), "object_ != NULL");
}

// Remove.

TEST_F(FecTableRequestTest, ARemoveWithoutHandlerTracesItsStepsInOrder) {
  const TraceRecorder traces({"FecTableSwTable"});
  table().entryRemove(key(5), nullptr);
  EXPECT_THAT(lines(traces),
              ElementsAre("8 entryRemove| key: 5|", "8 entryRemoveWithResponseHandler| key: 5|",
                          "8 entryRemoveGeneric| Key: 5 |",
                          "8 entryRemoveGeneric| Key: 5 not found in entry version collection|",
                          "2 entryRemoveGeneric| Done processing remove for key: 5 |",
                          "8 maybeUpdateSuspend||"));
}

TEST_F(FecTableRequestTest, ARemovePublishesVersionThenTheWriteItReplacesThenItself) {
  write(5, "eth1");
  const TableObserver observer(table());
  remove(5);
  EXPECT_THAT(observer.changes(),
              ElementsAre(TableChange{kVersion, 5}, TableChange{kAdd, 5}, TableChange{kRemove, 5}));
}

TEST_F(FecTableRequestTest, RemoveAfterWriteLeavesOnlyTheRemovePending) {
  const Handle written = write(5, "eth1");
  const Handle removed = remove(5);
  EXPECT_EQ(pendingWrite(5), nullptr);
  ASSERT_NE(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingRemove(5)->entryHandle(), removed);
  EXPECT_EQ(major(removed), major(written) + 1);
  EXPECT_EQ(pendingVersion(5), 1U);
  ASSERT_EQ(queued().size(), 2U) << "both stay queued";
  EXPECT_EQ(queued()[0]->swTableEntry()->entryHandle(), written);
  EXPECT_EQ(queued()[1]->swTableEntry()->entryHandle(), removed);
}

TEST_F(FecTableRequestTest, WriteAfterRemoveLeavesOnlyTheWritePending) {
  remove(5);
  const Handle written = write(5, "eth1");
  EXPECT_EQ(pendingRemove(5), nullptr);
  ASSERT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(major(written), 1U);
  EXPECT_EQ(queued().size(), 2U);
}

TEST_F(FecTableRequestTest, ANewerWriteReplacesTheOlderOneInTheMapOnly) {
  const Handle older = write(5, "eth1");
  const Handle newer = write(5, "eth1");
  EXPECT_EQ(table().transientAddEntry().size(), 1U);
  EXPECT_EQ(pendingWrite(5)->entryHandle(), newer);
  ASSERT_EQ(queued().size(), 2U);
  EXPECT_EQ(queued()[0]->swTableEntry()->entryHandle(), older);
}

TEST_F(FecTableRequestTest, ARemoveOfAKeyThatWasNeverWrittenIsQueuedLikeAnyOther) {
  const Handle removed = remove(5);
  EXPECT_EQ(major(removed), 0U);
  EXPECT_EQ(minor(removed), 0U);
  EXPECT_NE(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingVersion(5), 0U);
  EXPECT_EQ(queued().size(), 1U);
}

TEST_F(FecTableRequestTest, ARemoveCarriesItsKeyAndDefaultsAndAsksForNoInterface) {
  const auto other = dependency(State::notResolved);
  const Handle removed = remove(5, other);
  const QueuedEntry queuedEntry = queued().at(0);
  EXPECT_EQ(queuedEntry->dependantEntryHandle(), other);
  EXPECT_EQ(queuedEntry->flags(), Asic::EntryFlags(1));
  EXPECT_EQ(queuedEntry->swTable(), &table());
  FecTableDataModelEntry expected;
  expected.key = key(5);
  EXPECT_THAT(queuedEntry->swTableEntry()->entry(), IsEq(expected));
  EXPECT_EQ(queuedEntry->swTableEntry()->entryHandle(), removed);
  EXPECT_EQ(removed->entryState(), State::notResolved);
  EXPECT_THAT(agent_.client().requests, IsEmpty());
}

TEST_F(FecTableRequestTest, ARemoveNeedsNoLinkage) {
  const auto linkage = table().intfIdToDestIdLinkage();
  table().intfIdToDestIdLinkageIs(nullptr);
  remove(5);
  EXPECT_EQ(queued().size(), 1U);
  table().intfIdToDestIdLinkageIs(linkage);
}

TEST_F(FecTableRequestTest, ARequestMayBeGivenAKeyThatItsOwnStepsRemove) {
  write(5, "eth1");
  write(6, "eth1");
  const TraceRecorder traces({"FecTableSwTable"});
  table().transientAddEntry().forEach(
      [this](const auto& pending, const auto&) { table().entryRemove(pending, nullptr); });
  EXPECT_THAT(traces, HasTrace(2, " Done processing remove for key: 5 "));
  EXPECT_THAT(traces, HasTrace(2, " Done processing remove for key: 6 "));
  table().transientRemoveEntry().forEach([this](const auto& pending, const auto&) {
    table().entryWrite(pending, FecTableDataModelEntry(), nullptr);
  });
  EXPECT_THAT(traces, HasTrace(2, "Done processing write for key: 5 "));
  EXPECT_THAT(traces, HasTrace(2, "Done processing write for key: 6 "));
  EXPECT_EQ(table().transientAddEntry().size(), 2U);
}

// Remove all.

TEST_F(FecTableRequestTest, TheFirstRemoveAllSetsItsVersionToZeroAndTracesItsSteps) {
  const TraceRecorder traces({"FecTableSwTable"});
  table().entryRemoveAll(nullptr);
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(0));
  EXPECT_THAT(lines(traces),
              ElementsAre("8 entryRemoveAll||", "8 entryRemoveAllWithResponseHandler||",
                          "8 entryRemoveAllGeneric||",
                          "8 entryRemoveAllGeneric|No remove all operation currently enqueued|",
                          "2 entryRemoveAllGeneric|Done processing remove all |",
                          "8 maybeUpdateSuspend||"));
}

TEST_F(FecTableRequestTest, TheNextRemoveAllCountsOn) {
  removeAll();
  const TraceRecorder traces({"FecTableSwTable"});
  removeAll();
  EXPECT_THAT(traces, HasTrace(8, "Found valid table remove all version: 0"));
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(1));
  removeAll();
  EXPECT_THAT(traces, HasTrace(8, "Found valid table remove all version: 1"));
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(2));
  EXPECT_THAT(traces, ::testing::Not(HasTrace(8, "No remove all operation currently enqueued")));
}

TEST_F(FecTableRequestTest, ARemoveAllEmptiesBothMapsThenPublishesItsVersion) {
  write(5, "eth1");
  remove(6);
  const TableObserver observer(table());
  removeAll();
  EXPECT_THAT(observer.changes(), ElementsAre(TableChange{kAdd, 5}, TableChange{kRemove, 6},
                                              TableChange{kRemoveAll, std::nullopt, kInvalid}));
  EXPECT_EQ(queued().size(), 3U) << "what the maps forget stays queued";
}

TEST_F(FecTableRequestTest, ARemoveAllLeavesTheVersionsOfKeysSoThatTheyCountOn) {
  write(5, "eth1");
  write(5, "eth1");
  removeAll();
  EXPECT_EQ(pendingVersion(5), 1U);
  EXPECT_EQ(major(write(5, "eth1")), 2U);
}

TEST_F(FecTableRequestTest, ARemoveAllIsQueuedWithADefaultEntryAndTheZeroVersion) {
  const auto other = dependency(State::notResolved);
  removeAll(other);
  const QueuedEntry queuedEntry = queued().at(0);
  EXPECT_EQ(queuedEntry->dependantEntryHandle(), other);
  EXPECT_EQ(queuedEntry->flags(), Asic::EntryFlags(2));
  EXPECT_EQ(queuedEntry->swTable(), &table());
  EXPECT_THAT(queuedEntry->swTableEntry()->entry(), IsEq(FecTableDataModelEntry()));
  const auto handle = Pell::dynamicPtrCast<FecTableSwTable::EntryHandle>(
      queuedEntry->swTableEntry()->entryHandle());
  ASSERT_TRUE(handle);
  EXPECT_THAT(handle->version(), IsEq(Asic::EntryVersion()));
  EXPECT_EQ(handle->key(), key(0));
  EXPECT_EQ(handle->table(), &table());
  EXPECT_EQ(handle->entryState(), State::notResolved);
  EXPECT_THAT(agent_.client().requests, IsEmpty());
  EXPECT_EQ(pendingVersion(0), std::nullopt);
}

// Handlers and generations.

TEST_F(FecTableRequestTest, RequestsWithoutHandlerLeaveAnEmptyOneInTheHandle) {
  EXPECT_FALSE(table().entryWrite(key(5), FecHarness::entry("eth1"), nullptr)->responseHandler());
  EXPECT_FALSE(table().entryRemove(key(5), nullptr)->responseHandler());
  table().entryRemoveAll(nullptr);
  EXPECT_FALSE(queued().back()->swTableEntry()->entryHandle()->responseHandler());
}

TEST_F(FecTableRequestTest, TheHandlerIsCopiedIntoTheHandleAndNotCalledByTheRequest) {
  EXPECT_TRUE(write(5)->responseHandler());
  EXPECT_TRUE(remove(5)->responseHandler());
  removeAll(dependency(State::commitFailed));
  EXPECT_TRUE(queued().back()->swTableEntry()->entryHandle()->responseHandler());
  EXPECT_THAT(responses(), IsEmpty());
}

TEST_F(FecTableRequestTest, ManyRequestsOfOneTurnAreAnsweredByOneWalkInATurnOfItsOwn) {
  EXPECT_EQ(agent_.loop().pending(), 0U);
  write(5);
  EXPECT_EQ(agent_.loop().pending(), 1U);
  write(6);
  remove(7);
  removeAll();
  EXPECT_EQ(agent_.loop().pending(), 1U);
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_TRUE(agent_.loop().runOne());
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

// Exceptions.

struct Uncopyable {
  Uncopyable() = default;
  Uncopyable(const Uncopyable& /*other*/) { throw std::runtime_error("no copy"); }
  Uncopyable(Uncopyable&&) noexcept = default;
  Uncopyable& operator=(const Uncopyable&) = delete;
  Uncopyable& operator=(Uncopyable&&) = delete;
  ~Uncopyable() = default;
  void operator()(const Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>&) const {}
};

TEST_F(FecTableRequestTest, AHandlerThatCannotBeCopiedEndsARequestAfterItsVersion) {
  const FecTableSwTable::ResponseHandler handler{Uncopyable()};
  const std::int64_t handles = Zev::trackerOf<FecTableSwTable::EntryHandle>().live();
  EXPECT_THROW(
      table().entryWriteWithResponseHandler(key(5), FecHarness::entry("eth1"), nullptr, handler),
      std::runtime_error);
  EXPECT_THROW(table().entryRemoveWithResponseHandler(key(6), nullptr, handler),
               std::runtime_error);
  EXPECT_THROW(table().entryRemoveAllWithResponseHandler(nullptr, handler), std::runtime_error);
  EXPECT_EQ(pendingVersion(5), 0U) << "what was changed before stays changed";
  EXPECT_EQ(pendingVersion(6), 0U);
  EXPECT_EQ(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingRemove(6), nullptr);
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
  EXPECT_THAT(queued(), IsEmpty());
  EXPECT_EQ(Zev::trackerOf<FecTableSwTable::EntryHandle>().live(), handles);
}

TEST_F(FecTableRequestTest, AnExceptionAfterTheMapsHaveChangedLeavesThemChangedAndQueuesNothing) {
  remove(5);
  const std::int64_t queuedEntries = Zev::trackerOf<FecTableResolverEntry>().live();
  const std::int64_t wrappers = Zev::trackerOf<FecTableEntryWrapper>().live();
  {
    const TableObserver observer(table(), [](const TableChange& change) {
      if (change.attribute == kAdd) {
        throw std::runtime_error("an observer's fault");
      }
    });
    EXPECT_THROW(write(5, "eth1"), std::runtime_error);
  }
  EXPECT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingVersion(5), 1U);
  EXPECT_EQ(Zev::trackerOf<FecTableResolverEntry>().live(), queuedEntries);
  EXPECT_EQ(Zev::trackerOf<FecTableEntryWrapper>().live(), wrappers + 1) << "the map's alone";
  EXPECT_EQ(resolver().resolverQueueLength(), 1U) << "the remove";
}

// A loop that takes no turn.
class FullLoop : public Zev::EventLoop {
 public:
  void post(Task /*task*/) override { throw std::runtime_error("no room"); }
};

TEST_F(FecTableRequestTest, AGenerationThatCannotBeStartedEndsARequestThatIsQueuedAlready) {
  FullLoop loop;
  const auto full = Zev::makeObject<Asic::GroupResolver>(loop);
  const auto made =
      LoamFec::fecTableSwTableFactory(table().tableName(), table().tableId(), UnitId(7),
                                      table().status(), agent_.fec().entryLog(), full);
  EXPECT_THROW(made->entryRemove(key(5), nullptr), std::runtime_error);
  EXPECT_TRUE(made->transientRemoveEntry().has(key(5)));
  EXPECT_TRUE(made->transientVersionForKey().has(key(5)));
  EXPECT_EQ(full->resolverQueueLength(), 1U);
}

// Suspension. Every write waits for one interface that never resolves.

class SuspendTest : public FecTableRequestTest {
 protected:
  void queueUpTo(std::uint32_t length) {
    while (resolver().resolverQueueLength() < length) {
      table().entryWrite(key(next_++), FecHarness::entry("eth1"), nullptr);
    }
  }
  void dropDownTo(std::uint32_t length) {
    std::uint32_t excess = resolver().resolverQueueLength() - length;
    resolver().resolverQueueDelIf(
        [&excess](const Asic::ResolverEntry&) { return excess != 0 && excess-- != 0; });
    ASSERT_EQ(resolver().resolverQueueLength(), length);
  }
  // Suspends the table, lets the queue shrink and makes the request that finds it that long.
  bool suspendedAfterARequestThatFinds(std::uint32_t length) {
    queueUpTo(10000);
    EXPECT_TRUE(status().suspend());
    dropDownTo(length - 1);
    EXPECT_TRUE(status().suspend()) << "only a request or a commit looks";
    queueUpTo(length);
    return status().suspend();
  }

 private:
  std::uint32_t next_ = 0;
};

TEST_F(SuspendTest, TheTableIsSuspendedAtTenThousandQueuedEntries) {
  const TraceRecorder traces({"FecTableSwTable"}, 1U << 2);
  queueUpTo(9998);
  EXPECT_FALSE(status().suspend());
  queueUpTo(9999);
  EXPECT_FALSE(status().suspend());
  EXPECT_EQ(traces.find("Turning on suspend"), nullptr);
  queueUpTo(10000);
  EXPECT_TRUE(status().suspend());
  queueUpTo(10001);
  EXPECT_TRUE(status().suspend());
  EXPECT_EQ(traces.count(2, "Turning on suspend"), 1U);
  EXPECT_EQ(traces.find("Turning on suspend")->function, "maybeUpdateSuspend");
  EXPECT_EQ(traces.find("Turning off suspend"), nullptr);
}

TEST_F(SuspendTest, ASuspendedTableStaysSoWhileEightThousandEntriesAreQueued) {
  EXPECT_TRUE(suspendedAfterARequestThatFinds(8000));
}

TEST_F(SuspendTest, ASuspendedTableResumesAtSevenThousandNineHundredNinetyNine) {
  const TraceRecorder traces({"FecTableSwTable"}, 1U << 2);
  EXPECT_FALSE(suspendedAfterARequestThatFinds(7999));
  EXPECT_EQ(traces.count(2, "Turning off suspend"), 1U);
  EXPECT_EQ(traces.find("Turning off suspend")->function, "maybeUpdateSuspend");
}

TEST_F(SuspendTest, ASuspendedTableResumesBelowSevenThousandNineHundredNinetyNine) {
  EXPECT_FALSE(suspendedAfterARequestThatFinds(7998));
}

TEST_F(SuspendTest, ATableThatResumedIsSuspendedAgainOnlyAtTheUpperThreshold) {
  EXPECT_FALSE(suspendedAfterARequestThatFinds(7999));
  queueUpTo(9999);
  EXPECT_FALSE(status().suspend());
  queueUpTo(10000);
  EXPECT_TRUE(status().suspend());
}

TEST_F(SuspendTest, RemovesAndRemoveAllsLookAtTheQueueToo) {
  queueUpTo(9999);
  table().entryRemove(key(70000), nullptr);
  EXPECT_TRUE(status().suspend());
  dropDownTo(7998);
  table().entryRemoveAll(nullptr);
  EXPECT_FALSE(status().suspend());
  dropDownTo(7998);
  queueUpTo(9999);
  table().entryRemoveAll(nullptr);
  EXPECT_TRUE(status().suspend());
  dropDownTo(7998);
  table().entryRemove(key(70000), nullptr);
  EXPECT_FALSE(status().suspend());
}

TEST_F(SuspendTest, ASuspendedTableRefusesNoRequest) {
  queueUpTo(10000);
  ASSERT_TRUE(status().suspend());
  const Handle written = write(70000);
  const Handle removed = remove(70001);
  removeAll(dependency(State::notResolved));
  EXPECT_EQ(resolver().resolverQueueLength(), 10003U);
  agent_.run();
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_TRUE(committed(70000));
  EXPECT_TRUE(status().suspend());
}

TEST_F(SuspendTest, ACommitCountsTheEntryThatIsBeingCommitted) {
  queueUpTo(10000);
  dropDownTo(7998);
  ASSERT_TRUE(status().suspend());
  std::vector<std::uint32_t> lengths;
  // Queued behind the table's back, so that no request looks at the length.
  for (const std::uint32_t fecId : {80000U, 80001U, 80002U}) {
    const auto handle =
        FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(fecId), &table());
    FecTableDataModelEntry entry;
    entry.key = key(fecId);
    resolver().resolverQueueEnq(FecTableResolverEntry::FecTableResolverEntryIs(
        nullptr, Asic::EntryFlags(0), &table(),
        FecTableEntryWrapper::FecTableEntryWrapperIs(entry, handle)));
  }
  Pell::Subscriber subscriber([this, &lengths](auto&&...) {
    if (!status().suspend()) {
      lengths.push_back(resolver().resolverQueueLength());
    }
  });
  status().publisher().subscriberAdd(subscriber);
  ASSERT_EQ(resolver().resolverQueueLength(), 8001U);
  generation();
  status().publisher().subscriberRemove(subscriber);
  EXPECT_TRUE(committed(80002));
  // The commits found 8001, 8000 and 7999 entries: the last one resumed.
  EXPECT_THAT(lengths, ElementsAre(7999U));
}

TEST_F(SuspendTest, ACommitThatFailsLooksAtTheQueueToo) {
  queueUpTo(10000);
  dropDownTo(7998);
  const auto handle =
      FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(80000), &table());
  resolver().resolverQueueEnq(FecTableResolverEntry::FecTableResolverEntryIs(
      dependency(State::commitFailed), Asic::EntryFlags(0), &table(),
      FecTableEntryWrapper::FecTableEntryWrapperIs(FecTableDataModelEntry(), handle)));
  ASSERT_TRUE(status().suspend());
  generation();
  EXPECT_EQ(handle->entryState(), State::commitFailed);
  EXPECT_FALSE(status().suspend());
}

TEST_F(SuspendTest, WithoutAResolverNothingIsQueued) {
  const auto ownStatus = Zev::makeObject<Asic::OrderedSwTableStatus>(table().tableId());
  const auto made =
      LoamFec::fecTableSwTableFactory(table().tableName(), table().tableId(), UnitId(7), ownStatus,
                                      agent_.fec().entryLog(), nullptr);
  const auto handle = FecTableSwTable::entryHandleFactory(Asic::EntryVersion(), key(5), made.get());
  ownStatus->suspendIs(true);
  made->commitEntry(FecTableResolverEntry::FecTableResolverEntryIs(
      dependency(State::commitFailed), Asic::EntryFlags(0), made.get(),
      FecTableEntryWrapper::FecTableEntryWrapperIs(FecTableDataModelEntry(), handle)));
  EXPECT_FALSE(ownStatus->suspend());
}

}  // namespace
