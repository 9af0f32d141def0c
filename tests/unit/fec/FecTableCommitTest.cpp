// SPDX-License-Identifier: Apache-2.0

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FecTableFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

// The states in which a dependency counts as failed.
constexpr Asic::EntryState kFailed[] = {Asic::EntryState{2}, Asic::EntryState{4},
                                        Asic::EntryState{5}};

// A handle that no FEC table has made.
class ForeignHandle : public Zev::Typed<ForeignHandle, Asic::OrderedSwTable::EntryHandle> {
 public:
  static constexpr const char* kTypeName = "ForeignHandle";

  ForeignHandle() : Typed(Asic::SwTableId(1)) {}
};

class FecTableCommitTest : public FecTableFixture {
 protected:
  using Wrapper = Pell::Ptr<FecTableEntryWrapper>;

  // A handle as the table makes it, held by the test.
  Pell::Ptr<Table::EntryHandle> handle(std::uint32_t fecId, std::uint64_t version = 0) {
    auto made = Table::entryHandleFactory(Asic::EntryVersion(version, 0), key(fecId), &table());
    made->responseHandlerIs(agent_.recordResponse());
    return made;
  }
  // Has the table commit an operation that never stood in a queue.
  void commit(std::uint8_t flags, std::uint32_t fecId,
              const Pell::Ptr<Asic::OrderedSwTable::EntryHandle>& entryHandle,
              const Dependency& other = nullptr) {
    FecTableDataModelEntry entry;
    entry.key = key(fecId);
    commit(flags, FecTableEntryWrapper::FecTableEntryWrapperIs(entry, entryHandle), other);
  }
  void commit(std::uint8_t flags, const Wrapper& wrapper, const Dependency& other = nullptr) {
    table().commitEntry(FecTableResolverEntry::FecTableResolverEntryIs(
        other, Asic::EntryFlags(flags), &table(), wrapper));
  }
  // The handle of the operation that was queued last.
  Pell::Ptr<Asic::OrderedSwTable::EntryHandle> lastQueuedHandle() {
    return queued().back()->swTableEntry()->entryHandle();
  }
  std::optional<FecTableDataModelConfigGlintEntry> configRow(std::uint32_t fecId) {
    return log().tableConfigGlint(table().unitId())->swTableEntries().row(key(fecId));
  }
  std::vector<std::string> needed(std::uint64_t version) {
    std::vector<std::string> found;
    auto& rows =
        static_cast<Glint::GlintMap<Asic::GroupLogRow>&>(agent_.group()->groupLog()->logMap());
    for (auto at = rows.iterator(); at.valid(); at.advance()) {
      if (at.row().tableVersion().logVersion() == Asic::LogVersion(version)) {
        for (std::uint32_t i = 0; i < at.row().neededCount(); ++i) {
          found.push_back(valueToStrep(at.row().needed(i)));
        }
      }
    }
    return found;
  }
  // The functions that have traced, in order, as far as they are among the wanted ones.
  static Texts steps(const TraceRecorder& traces, const std::set<std::string>& wanted) {
    Texts found;
    for (const auto& record : traces.records()) {
      if (wanted.contains(record.function)) {
        found.push_back(record.function);
      }
    }
    return found;
  }
  // Whether the request's commit raises the flag of pending hardware writes.
  template <typename Request>
  bool raisesTheFlag(Request&& request) {
    agent_.reportAll();
    EXPECT_FALSE(status().pendingHwWrites());
    request();
    agent_.run();
    return status().pendingHwWrites();
  }
  Pell::Ptr<ScriptedHelper> helperIs() {
    auto helper = Zev::makeObject<ScriptedHelper>();
    table().swTableHelperIs(helper);
    return helper;
  }
};

// Assertions.

TEST_F(FecTableCommitTest, AnOperationThatDeletesEntryAndTableStopsTheProcess) {
  const auto held = handle(5);
  EXPECT_DEATH(commit(3, 5, held), "assertion failed: !\\( isEntryDelete && isTableDelete \\)");
}

TEST_F(FecTableCommitTest, AnOperationWithoutHandleStopsTheProcess) {
  EXPECT_DEATH(commit(0, 5, nullptr), "assertion failed: entryHandle != NULL");
}

TEST_F(FecTableCommitTest, AHandleOfAnotherTypeStopsTheProcess) {
  const auto foreign = Zev::makeObject<ForeignHandle>();
  EXPECT_DEATH(commit(0, 5, foreign), "assertion failed: entryHandle != NULL");
}

TEST_F(FecTableCommitTest, AnInvalidVersionStopsTheCommitOfAWriteOrRemove) {
  const auto held = handle(5, kInvalid);
  EXPECT_DEATH(commit(0, 5, held), "assertion failed: entryConfVersion\\.valid\\(\\)");
  EXPECT_DEATH(commit(1, 5, held), "assertion failed: entryConfVersion\\.valid\\(\\)");
}

TEST_F(FecTableCommitTest, ATableDeleteIsNotAskedForItsEntryVersion) {
  table().transientRemoveAllVersionIs(Asic::MajorVersion(0));
  commit(2, 0, handle(0, kInvalid));
  EXPECT_EQ(logVersion(), 1U);
}

TEST_F(FecTableCommitTest, ATableDeleteWithoutPendingRemoveAllStopsTheProcess) {
  const auto held = handle(0);
  EXPECT_DEATH(commit(2, 0, held), "assertion failed: currRemoveAllVersion\\.valid\\(\\)");
}

// Writes.

TEST_F(FecTableCommitTest, AWriteIsLoggedWithItsContentsAndItsResolvedDestination) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 7, 9});
  FecTableDataModelEntry entry = FecHarness::entry("eth1", 77);
  entry.flagA = 1;
  entry.flagB = 2;
  entry.opaqueB = 3;
  entry.clientDest = {11, 12, 0, 13};
  entry.resolvedDest = {21, 22, 0, 23};
  table().entryWrite(key(5), entry, nullptr);
  agent_.run();
  FecTableDataModelLogEntry expected = entry.logEntry();
  expected.key = key(5);
  expected.resolvedDest = {100, 7, 0, 9};
  ASSERT_TRUE(logRow(1));
  EXPECT_EQ(logRow(1)->operation(), FecTableDataModelLogGlintEntry::kEntryWritten);
  EXPECT_EQ(logRow(1)->unitId(), table().unitId());
  EXPECT_THAT(logRow(1)->logEntry(), IsEq(expected));
  ASSERT_TRUE(configRow(5));
  EXPECT_THAT(configRow(5)->logEntry(), IsEq(expected));
  EXPECT_EQ(configRow(5)->rsrcKeys().intfId, Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(configRow(5)->version(), Asic::LogVersion(1));
  EXPECT_FALSE(configRow(5)->isDeleted());
}

TEST_F(FecTableCommitTest, ACommittedWriteWaitsInTheLogQueueForTheHardware) {
  const Handle first = write(5);
  const Handle second = write(6);
  agent_.run();
  EXPECT_EQ(first->logVersion(), Asic::LogVersion(1));
  EXPECT_EQ(first->entryState(), State::hwWritePending);
  EXPECT_EQ(second->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(table().entryHandlesInLog(), 2U);
  EXPECT_EQ(table().entryHandleInLogFront(), first);
  EXPECT_EQ(table().entryHandleInLogBack(), second);
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_TRUE(nothingPending(5));
  EXPECT_THAT(responses(), IsEmpty());
  agent_.reportAll();
  EXPECT_THAT(responses(), SizeIs(2));
  EXPECT_EQ(second->entryState(), State::done);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, AWriteGoesThroughItsStepsInOrder) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  write(5, "eth1");
  const TraceRecorder traces({"FecTableSwTable", "FecTableEntryWrapper", "FecTableEntryLog",
                              "FecTableIntfIdToDestIdLinkage"},
                             1U << 8);
  agent_.run();
  std::vector<std::string> steps;
  for (const auto& record : traces.records()) {
    if (record.function == "commitEntry" || !steps.empty()) {
      steps.push_back(record.function);
    }
  }
  EXPECT_THAT(steps, ElementsAre("commitEntry", "checkCommitToLog", "finalizeOnSuccess",
                                 "getNeededEntrySet", "updateLocalUsage", "entryHas",
                                 "addResKeyMapping", "entryIs", "maybeUpdateSuspend"));
  EXPECT_THAT(traces, HasTrace(8, "Entry: 5, isEntryDeleted: false, isTableDeleted: false"));
}

TEST_F(FecTableCommitTest, TheTransientMapsAreCleanedBeforeTheWriteIsLogged) {
  write(5);
  std::vector<std::string> seen;
  const TableObserver observer(table(), [&](const TableChange& change) {
    const auto front = table().entryHandleInLogFront();
    seen.push_back(fmt::format(
        "{}@{}{}", change.attribute, logVersion(),
        front ? fmt::format(" state {} version {}", front->entryState(), front->logVersion())
              : ""));
  });
  agent_.run();
  EXPECT_THAT(seen, ElementsAre(fmt::format("{}@0", kAdd), fmt::format("{}@0", kVersion),
                                fmt::format("{}@1 state 1 version 1", kInLog)));
}

TEST_F(FecTableCommitTest, TheHelperIsToldBeforeTheWriteIsLogged) {
  const auto helper = helperIs();
  helper->onSuccess = [this](const Wrapper& wrapper) {
    EXPECT_EQ(logVersion(), 0U);
    EXPECT_EQ(pendingWrite(5), wrapper.get());
    EXPECT_EQ(wrapper->entry().resolvedDest.first, 100U);
    EXPECT_EQ(wrapper->entryHandle()->entryState(), State::notResolved);
  };
  write(5, "eth1");
  resourceIs("eth1", State::done, 100);
  EXPECT_THAT(helper->successes, ElementsAre(5));
  EXPECT_TRUE(committed(5));
}

TEST_F(FecTableCommitTest, AWriteNeedsWhatItsDestinationAndItsDependencyNeed) {
  const auto own = Zev::makeObject<Asic::NeededEntry>();
  own->add({Asic::SwTableId(0x03010807), Asic::LogVersion(4)});
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0}, own);
  const auto other = dependency(State::done);
  other->tableVersionIs({Asic::SwTableId(0x03010806), Asic::LogVersion(9)});
  write(5, "eth1", 0, other);
  agent_.run();
  EXPECT_THAT(needed(1), ElementsAre("03:01:0807@4", "03:01:0806@9"));
  EXPECT_EQ(own->tableVersions().size(), 1U) << "the handle's own set is left alone";
}

TEST_F(FecTableCommitTest, ADependencyThatHasNotFailedDoesNotStopACommit) {
  std::uint32_t fecId = 10;
  for (const auto state : {State{0}, State{1}, State{3}, State{6}}) {
    const auto held = handle(++fecId);
    commit(0, fecId, held, dependency(state));
    EXPECT_EQ(held->entryState(), State::hwWritePending) << valueToStrep(state);
    EXPECT_TRUE(committed(fecId));
  }
}

TEST_F(FecTableCommitTest, CommittingTheFirstOfTwoWritesLeavesTheSecondPending) {
  const auto other = dependency(State::notResolved);
  const Handle first = write(5, "", 1);
  const Handle second = write(5, "", 2, other);
  agent_.run();
  EXPECT_EQ(first->entryState(), State::hwWritePending);
  ASSERT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingWrite(5)->entryHandle(), second);
  EXPECT_EQ(pendingVersion(5), 1U);
  EXPECT_EQ(committedMark(5), 1U);
  other->stateIs(State::done);
  agent_.run();
  EXPECT_TRUE(nothingPending(5));
  EXPECT_EQ(committedMark(5), 2U);
}

TEST_F(FecTableCommitTest, CommittingTheFirstOfTwoRemovesLeavesTheSecondPending) {
  writeCommitted(5);
  const auto other = dependency(State::notResolved);
  remove(5);
  const Handle second = remove(5, other);
  agent_.run();
  EXPECT_FALSE(committed(5));
  ASSERT_NE(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingRemove(5)->entryHandle(), second);
  EXPECT_EQ(pendingVersion(5), 1U);
}

TEST_F(FecTableCommitTest, CommittingAWriteLeavesANewerRemovePending) {
  const auto other = dependency(State::notResolved);
  write(5);
  remove(5, other);
  agent_.run();
  EXPECT_TRUE(committed(5));
  EXPECT_NE(pendingRemove(5), nullptr);
  EXPECT_EQ(pendingVersion(5), 1U);
}

TEST_F(FecTableCommitTest, CommittingARemoveThatANewerWriteReplacedTouchesNeitherMap) {
  writeCommitted(5, "", 1);
  const auto other = dependency(State::notResolved);
  remove(5);
  const Handle newer = write(5, "", 2, other);
  agent_.run();
  EXPECT_FALSE(committed(5));
  ASSERT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingWrite(5)->entryHandle(), newer);
  EXPECT_EQ(pendingVersion(5), 1U);
}

// Removes.

TEST_F(FecTableCommitTest, ARemoveIsLoggedAsTheDeletionOfItsEntry) {
  writeCommitted(5, "", 77);
  const Handle removed = remove(5);
  const TraceRecorder traces({"FecTableSwTable"});
  agent_.run();
  EXPECT_THAT(traces, HasTrace(8, "Entry: 5, isEntryDeleted: true, isTableDeleted: false"));
  ASSERT_TRUE(logRow(2));
  EXPECT_EQ(logRow(2)->operation(), FecTableDataModelLogGlintEntry::kEntryDeleted);
  EXPECT_EQ(logRow(2)->logEntry().opaqueA, 77U);
  EXPECT_TRUE(configRow(5)->isDeleted());
  EXPECT_EQ(removed->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_EQ(table().entryHandleInLogBack(), removed);
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(FecTableCommitTest, ARemoveNeedsItsDependencyAlone) {
  writeCommitted(5);
  const auto other = dependency(State::done);
  remove(5, other);
  writeCommitted(6);
  remove(6);
  agent_.run();
  EXPECT_THAT(needed(2), ElementsAre("03:01:0806@1"));
  EXPECT_THAT(needed(4), IsEmpty());
}

TEST_F(FecTableCommitTest, ARemoveIsLoggedThoughAWriteOfTheEntryWouldBeRefused) {
  const auto helper = helperIs();
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  writeCommitted(5, "eth1");
  agent_.client().handle("eth1")->contentsAre(State::resourceFailed, {});
  const Handle refused = write(5, "eth1");
  const Handle removed = remove(5);
  const TraceRecorder traces({"FecTableIntfIdToDestIdLinkage", "FecTableSwTable"});
  agent_.run();
  EXPECT_EQ(refused->entryState(), State::commitFailed);
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_FALSE(committed(5));
  EXPECT_THAT(helper->failures, ElementsAre(5)) << "the write's alone";
  EXPECT_THAT(traces.textsOf("checkCommitToLog"), SizeIs(1));
}

TEST_F(FecTableCommitTest, ARemoveReleasesItsResourceBeforeItIsLogged) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  writeCommitted(5, "eth1");
  const Handle removed = remove(5);
  const TraceRecorder traces(
      {"FecTableSwTable", "FecTableEntryLog", "FecTableIntfIdToDestIdLinkage"}, 1U << 8);
  agent_.run();
  ASSERT_THAT(agent_.client().releases, SizeIs(1));
  EXPECT_EQ(agent_.client().releases.front().dependency, removed);
  EXPECT_THAT(steps(traces, {"commitEntry", "updateLocalUsage", "deleteResKeyMapping", "entryDel",
                             "maybeUpdateSuspend"}),
              ElementsAre("commitEntry", "updateLocalUsage", "deleteResKeyMapping", "entryDel",
                          "maybeUpdateSuspend"));
}

TEST_F(FecTableCommitTest, ARemoveOfAKeyWithoutRowIsAnsweredAtVersionZeroByTheNextReport) {
  const Handle removed = remove(5);
  agent_.run();
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_EQ(log().entryLogConfigRows(), 0U);
  EXPECT_EQ(removed->logVersion(), Asic::LogVersion(0));
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_EQ(table().entryHandleInLogFront(), removed);
  EXPECT_TRUE(status().pendingHwWrites()) << "though nothing was logged";
  EXPECT_THAT(responses(), IsEmpty());
  agent_.report(0);
  ASSERT_THAT(responses(), SizeIs(1));
  EXPECT_EQ(responses().front().state, State::done);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, AnIgnoredRemoveOnAnIdleLogWaitsForARepeatedReport) {
  writeCommitted(5);
  agent_.reportAll();
  ASSERT_FALSE(status().pendingHwWrites());
  const Handle removed = remove(6);
  agent_.run();
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_THAT(responses(), SizeIs(1)) << "the write's answer alone";
  agent_.report(1);
  EXPECT_THAT(responses(), SizeIs(2));
  EXPECT_EQ(removed->entryState(), State::done);
  EXPECT_FALSE(status().pendingHwWrites());
}

// Remove-alls.

TEST_F(FecTableCommitTest, ARemoveAllIsLoggedAsOneTableDelete) {
  writeCommitted(5);
  writeCommitted(6);
  const auto other = dependency(State::done);
  removeAll(other);
  const TraceRecorder traces({"FecTableSwTable"});
  agent_.run();
  EXPECT_THAT(traces, HasTrace(8, "Entry: 0, isEntryDeleted: false, isTableDeleted: true"));
  ASSERT_THAT(traces, HasTrace(8, "Committing table delete for version: 0"));
  EXPECT_EQ(traces.find("Committing table delete for version: 0")->function, "commitEntry");
  ASSERT_TRUE(logRow(3));
  EXPECT_EQ(logRow(3)->operation(), FecTableDataModelLogGlintEntry::kTableDeleted);
  EXPECT_THAT(logRow(3)->logEntry(), IsEq(FecTableDataModelLogEntry()));
  EXPECT_TRUE(configRow(5)->isDeleted());
  EXPECT_TRUE(configRow(6)->isDeleted());
  EXPECT_EQ(logVersion(), 3U);
  EXPECT_THAT(needed(3), ElementsAre("03:01:0806@1"));
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_EQ(table().entrys(), 0U);
}

TEST_F(FecTableCommitTest, ARemoveAllGoesThroughItsStepsInOrder) {
  writeCommitted(5);
  removeAll();
  std::vector<std::uint64_t> loweredAt;
  const TableObserver observer(table(), [&](const TableChange& change) {
    EXPECT_EQ(change.attribute, kRemoveAll);
    loweredAt.push_back(logVersion());
  });
  const TraceRecorder traces(
      {"FecTableSwTable", "FecTableEntryLog", "FecTableIntfIdToDestIdLinkage"}, 1U << 8);
  agent_.run();
  EXPECT_THAT(steps(traces, {"commitEntry", "getNeededEntrySet", "delAllEntries",
                             "updateLocalUsage", "tableDel", "maybeUpdateSuspend"}),
              ElementsAre("commitEntry", "commitEntry", "getNeededEntrySet", "delAllEntries",
                          "updateLocalUsage", "tableDel", "maybeUpdateSuspend"));
  EXPECT_THAT(loweredAt, ElementsAre(2U)) << "after the deletion was logged";
}

TEST_F(FecTableCommitTest, ARemoveAllReleasesEachResourceOnce) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  agent_.client().handle("eth2")->contentsAre(State::done, {200, 0, 0});
  writeCommitted(5, "eth1");
  writeCommitted(6, "eth1");
  writeCommitted(7, "eth2");
  removeAll();
  agent_.run();
  EXPECT_THAT(agent_.client().releases, SizeIs(2));
  EXPECT_EQ(table().intfIdToDestIdLinkage()->entryUsageSms(), 0U);
}

TEST_F(FecTableCommitTest, ARemoveAllAtVersionZeroLeavesNoneValid) {
  removeAll();
  ASSERT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(0));
  agent_.run();
  EXPECT_EQ(table().transientRemoveAllVersion().value(), kInvalid);
}

TEST_F(FecTableCommitTest, EachCommittedRemoveAllLowersTheVersionByOne) {
  const auto other = dependency(State::notResolved);
  removeAll();
  removeAll(other);
  ASSERT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(1));
  agent_.run();
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(0));
  other->stateIs(State::done);
  agent_.run();
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
  const TraceRecorder traces({"FecTableSwTable"});
  removeAll();
  EXPECT_THAT(traces, HasTrace(8, "No remove all operation currently enqueued"))
      << "it starts again";
}

TEST_F(FecTableCommitTest, TheHandleOfASuccessfulRemoveAllIsNeverAnswered) {
  const Handle written = write(5);
  agent_.run();
  removeAll();
  const auto held = lastQueuedHandle();
  agent_.run();
  EXPECT_EQ(table().entryHandlesInLog(), 1U) << "the queue is as it was";
  EXPECT_EQ(table().entryHandleInLogBack(), written);
  EXPECT_EQ(held->logVersion(), Asic::LogVersion());
  EXPECT_EQ(held->entryState(), State::notResolved);
  agent_.reportAll();
  EXPECT_EQ(held->entryState(), State::notResolved);
  EXPECT_THAT(responses(), SizeIs(1)) << "the write's answer alone";
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, WhatDependsOnASuccessfulRemoveAllNeverResolves) {
  removeAll();
  const Handle waiting = write(5, "", 0, lastQueuedHandle());
  agent_.run();
  agent_.reportAll();
  generation();
  EXPECT_EQ(waiting->entryState(), State::notResolved);
  EXPECT_EQ(resolver().resolverQueueLength(), 1U);
}

TEST_F(FecTableCommitTest, ATableDeleteWithoutConfigurationTableLogsNothingAndRaisesTheFlag) {
  const auto config = log().tableConfigGlintDel(table().unitId());
  removeAll();
  agent_.run();
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_TRUE(status().pendingHwWrites());
  EXPECT_FALSE(table().transientRemoveAllVersion().valid());
  log().tableConfigGlintIs(table().unitId(), config);
}

// Failures.

TEST_F(FecTableCommitTest, AWriteWhoseDependencyHasFailedIsNeverLogged) {
  std::uint32_t fecId = 10;
  for (const auto state : kFailed) {
    const TraceRecorder traces({"FecTableSwTable"});
    agent_.responses.clear();
    const Handle failed = write(++fecId, "", 0, dependency(state));
    agent_.run();
    EXPECT_EQ(failed->entryState(), State::commitFailed);
    EXPECT_EQ(failed->logVersion(), Asic::LogVersion());
    ASSERT_THAT(responses(), SizeIs(1));
    EXPECT_EQ(responses().front().key, key(fecId));
    EXPECT_EQ(responses().front().state, State::commitFailed);
    EXPECT_NE(pendingWrite(fecId), nullptr);
    EXPECT_EQ(pendingVersion(fecId), 0U);
    EXPECT_THAT(traces.texts(1),
                ElementsAre(fmt::format("Failed dependent entry for key: {}", fecId),
                            fmt::format("Failed to commit entry key: {}", fecId)));
    EXPECT_EQ(traces.find(fmt::format("Failed to commit entry key: {}", fecId))->function,
              "commitEntry");
  }
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, ARemoveWhoseDependencyHasFailedIsNeverLogged) {
  writeCommitted(5);
  agent_.reportAll();
  agent_.responses.clear();
  const TraceRecorder traces({"FecTableSwTable"});
  for (const auto state : kFailed) {
    const Handle failed = remove(5, dependency(state));
    agent_.run();
    EXPECT_EQ(failed->entryState(), State::commitFailed);
  }
  EXPECT_THAT(responses(), SizeIs(3));
  EXPECT_EQ(traces.count(1, "Failed dependent entry for key: 5"), 3U);
  EXPECT_EQ(traces.count(1, "Failed to commit entry key: 5"), 3U);
  EXPECT_TRUE(committed(5));
  EXPECT_EQ(logVersion(), 1U);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, ARemoveAllWhoseDependencyHasFailedAnswersItsHandler) {
  writeCommitted(5);
  agent_.reportAll();
  agent_.responses.clear();
  for (const auto state : kFailed) {
    const TraceRecorder traces({"FecTableSwTable"});
    removeAll(dependency(state));
    agent_.run();
    EXPECT_THAT(traces.texts(1), ElementsAre("Failed dependent entry for remove all",
                                             "Failed to commit entry remove all operation"));
    EXPECT_EQ(traces.find("Failed dependent entry for remove all")->function, "commitEntry");
    EXPECT_EQ(traces.find("Failed to commit entry remove all operation")->function, "commitEntry");
  }
  ASSERT_THAT(responses(), SizeIs(3));
  EXPECT_EQ(responses().front().state, State::commitFailed);
  EXPECT_EQ(responses().front().key, key(0));
  EXPECT_TRUE(committed(5));
  EXPECT_EQ(logVersion(), 1U);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(FecTableCommitTest, ARefusedWriteFailsWithoutADependencyMessage) {
  const auto helper = helperIs();
  const Handle refused = write(5, "eth1");
  const TraceRecorder traces({"FecTableSwTable"});
  resourceIs("eth1", State::resourceFailed);
  EXPECT_THAT(traces.texts(1), ElementsAre("Failed to commit entry key: 5"));
  EXPECT_EQ(refused->entryState(), State::commitFailed);
  EXPECT_THAT(helper->failures, ElementsAre(5));
  ASSERT_THAT(responses(), SizeIs(1));
  EXPECT_EQ(responses().front().version, Asic::LogVersion());
  EXPECT_NE(pendingWrite(5), nullptr);
  EXPECT_EQ(pendingVersion(5), 0U);
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(status().pendingHwWrites());
  EXPECT_THAT(agent_.client().acks, IsEmpty()) << "a failed write uses no resource";
}

TEST_F(FecTableCommitTest, AFailureWithoutHandlerAnswersNobody) {
  const Handle failed =
      table().entryWrite(key(5), FecTableDataModelEntry(), dependency(State::commitFailed));
  agent_.run();
  EXPECT_EQ(failed->entryState(), State::commitFailed);
  EXPECT_THAT(responses(), IsEmpty());
}

TEST_F(FecTableCommitTest, EveryKindOfCommitRaisesThePendingFlagAndAFailedOneDoesNot) {
  const auto failed = dependency(State::commitFailed);
  EXPECT_TRUE(raisesTheFlag([&] { write(5); }));
  EXPECT_FALSE(raisesTheFlag([&] { write(6, "", 0, failed); }));
  EXPECT_FALSE(raisesTheFlag([&] { remove(5, failed); }));
  EXPECT_TRUE(raisesTheFlag([&] { remove(5); }));
  EXPECT_FALSE(raisesTheFlag([&] { removeAll(failed); }));
  EXPECT_TRUE(raisesTheFlag([&] { removeAll(); }));
}

TEST_F(FecTableCommitTest, EveryCommitEndsWithTheSuspendControl) {
  write(5);
  remove(6);
  removeAll();
  write(7, "", 0, dependency(State::commitFailed));
  const TraceRecorder traces({"FecTableSwTable"}, 1U << 8);
  agent_.run();
  EXPECT_THAT(traces.textsOf("maybeUpdateSuspend"), ElementsAre("", "", "", ""));
  EXPECT_EQ(traces.records().back().function, "maybeUpdateSuspend");
}

TEST_F(FecTableCommitTest, AWriteThatTheHelperLogsInFailureKeepsTheClientsDestination) {
  const auto helper = helperIs();
  helper->logsFailures = true;
  FecTableDataModelEntry entry = FecHarness::entry("eth1");
  entry.resolvedDest = {21, 22, 0, 23};
  const Handle logged =
      table().entryWriteWithResponseHandler(key(5), entry, nullptr, agent_.recordResponse());
  resourceIs("eth1", State::resourceFailed, 100);
  EXPECT_EQ(logged->entryState(), State::hwWritePending);
  EXPECT_TRUE(committed(5));
  EXPECT_EQ(configRow(5)->logEntry().resolvedDest.first, 21U);
  EXPECT_EQ(configRow(5)->logEntry().resolvedDest.second, 22U);
  EXPECT_EQ(configRow(5)->logEntry().resolvedDest.third, 23U);
  EXPECT_THAT(agent_.client().acks, SizeIs(1)) << "it uses its resource all the same";
  EXPECT_TRUE(status().pendingHwWrites());
}

// What a failed commit leaves behind.

TEST_F(FecTableCommitTest, AFailedWriteGoesOnReadingAsPendingUntilTheKeyIsWrittenAgain) {
  writeCommitted(5, "", 1);
  write(5, "", 2, dependency(State::commitFailed));
  agent_.run();
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 2U);
  EXPECT_EQ(committedMark(5), 1U);
  const Handle healing = write(5, "", 3);
  EXPECT_EQ(healing->version().major(), 1U);
  agent_.run();
  EXPECT_TRUE(nothingPending(5));
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 3U);
}

TEST_F(FecTableCommitTest, AFailedRemoveGoesOnHidingTheEntryUntilTheKeyIsWrittenAgain) {
  writeCommitted(5);
  remove(5, dependency(State::commitFailed));
  agent_.run();
  EXPECT_TRUE(committed(5));
  EXPECT_FALSE(table().entryHas(key(5)));
  EXPECT_EQ(table().entrys(), 0U);
  writeCommitted(5);
  EXPECT_TRUE(nothingPending(5));
  EXPECT_TRUE(table().entryHas(key(5)));
}

TEST_F(FecTableCommitTest, AFailedRemoveAllHidesEveryCommittedEntryForGood) {
  writeCommitted(5);
  removeAll(dependency(State::commitFailed));
  agent_.run();
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(0));
  EXPECT_FALSE(table().entryHas(key(5)));
  EXPECT_EQ(table().entrys(), 0U);
  writeCommitted(5);
  EXPECT_FALSE(table().entryHas(key(5)));
  removeAll();
  agent_.run();
  EXPECT_EQ(table().transientRemoveAllVersion(), Asic::MajorVersion(0))
      << "a successful one lowers only what it raised itself";
}

// Operations of one key that commit in another order than that of the requests.

TEST_F(FecTableCommitTest, ARemoveOvertakesAWriteThatWaitsAndTheWriteThenBringsTheKeyBack) {
  const Handle written = write(5, "eth1", 1);
  const Handle removed = remove(5);
  agent_.run();
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_EQ(written->entryState(), State::notResolved);
  EXPECT_TRUE(nothingPending(5));
  EXPECT_FALSE(table().entryHas(key(5)));
  resourceIs("eth1", State::done, 100);
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_TRUE(table().entryHas(key(5)));
}

TEST_F(FecTableCommitTest, AWriteThatWaitedReplacesTheNewerOneThatOvertookIt) {
  agent_.client().handle("eth2")->contentsAre(State::done, {200, 0, 0});
  write(5, "eth1", 1);
  write(5, "eth2", 2);
  agent_.run();
  EXPECT_EQ(committedMark(5), 2U);
  resourceIs("eth1", State::done, 100);
  EXPECT_EQ(committedMark(5), 1U) << "the older contents come last";
}

TEST_F(FecTableCommitTest, WritesThatAreBothResolvedCommitInTheOrderOfTheRequests) {
  write(5, "eth1", 1);
  write(5, "eth1", 2);
  resourceIs("eth1", State::done, 100);
  EXPECT_EQ(committedMark(5), 2U);
  EXPECT_EQ(logVersion(), 2U);
}

TEST_F(FecTableCommitTest, AVersionThatIsGivenTwiceLetsTheOlderWriteCleanTheNewerOnesRecords) {
  agent_.client().handle("eth2")->contentsAre(State::done, {200, 0, 0});
  const Handle stuck = write(5, "eth1", 1);
  write(5, "eth2", 2);
  agent_.run();
  ASSERT_TRUE(nothingPending(5)) << "the second write was the newest of the key";
  const Handle newest = write(5, "eth3", 3);
  EXPECT_THAT(stuck->version(), IsEq(newest->version()));
  agent_.run();
  ASSERT_NE(pendingWrite(5), nullptr);
  resourceIs("eth1", State::done, 100);
  EXPECT_TRUE(nothingPending(5));
  EXPECT_EQ(newest->entryState(), State::notResolved);
  EXPECT_EQ(table().entryRead(key(5)).opaqueA, 1U) << "reads see the older write";
  resourceIs("eth3", State::done, 300);
  EXPECT_EQ(committedMark(5), 3U) << "the newest still commits";
}

TEST_F(FecTableCommitTest, ALaterWriteOvertakesARemoveAllThatWaitsAndIsThenDeletedByIt) {
  const auto other = dependency(State::notResolved);
  removeAll(other);
  write(5);
  agent_.run();
  EXPECT_TRUE(committed(5));
  EXPECT_FALSE(table().entryHas(key(5))) << "the pending remove-all hides it";
  other->stateIs(State::done);
  agent_.run();
  EXPECT_FALSE(committed(5));
}

TEST_F(FecTableCommitTest, AWriteThatWaitedSurvivesTheRemoveAllThatCameAfterIt) {
  write(5, "eth1");
  removeAll();
  agent_.run();
  EXPECT_FALSE(table().entryHas(key(5)));
  resourceIs("eth1", State::done, 100);
  EXPECT_TRUE(table().entryHas(key(5)));
}

TEST_F(FecTableCommitTest, AWriteThatARemoveAllForgotStillCommitsBeforeIt) {
  const Handle written = write(5);
  removeAll();
  EXPECT_EQ(pendingWrite(5), nullptr);
  EXPECT_FALSE(table().entryHas(key(5)));
  agent_.run();
  EXPECT_EQ(written->logVersion(), Asic::LogVersion(1));
  EXPECT_EQ(logRow(2)->operation(), FecTableDataModelLogGlintEntry::kTableDeleted);
  EXPECT_FALSE(committed(5));
}

TEST_F(FecTableCommitTest, TheVersionOfAWriteThatARemoveAllForgotStaysUntilALaterOperation) {
  write(5);
  removeAll();
  agent_.run();
  EXPECT_EQ(pendingVersion(5), 0U) << "its own commit did not remove it";
  EXPECT_EQ(write(5)->version().major(), 1U);
  agent_.run();
  EXPECT_TRUE(nothingPending(5));
}

// Handles of other types.

// Handle of no FEC table, whose bytes look like those of the zero version.
class ZeroedForeignHandle
    : public Zev::Typed<ZeroedForeignHandle, Asic::OrderedSwTable::EntryHandle> {
 public:
  static constexpr const char* kTypeName = "ZeroedForeignHandle";
  ZeroedForeignHandle() : Typed(Asic::SwTableId(1)) {}

 private:
  [[maybe_unused]] std::array<std::uint64_t, 8> zeros_ = {};
};

TEST_F(FecTableCommitTest, AWrapperWithAForeignHandleIsNobodysNewestRequest) {
  write(5);
  FecTableDataModelEntry foreign;
  foreign.key = key(5);
  table().transientAddEntryIs(FecTableEntryWrapper::FecTableEntryWrapperIs(
      foreign, Zev::makeObject<ZeroedForeignHandle>()));
  agent_.run();
  EXPECT_TRUE(committed(5));
  EXPECT_NE(pendingWrite(5), nullptr) << "it is not the one that was committed";
  EXPECT_EQ(pendingVersion(5), 0U);
}

}  // namespace
