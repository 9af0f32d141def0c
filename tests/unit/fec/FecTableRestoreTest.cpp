// SPDX-License-Identifier: Apache-2.0

// What works from the shared configuration table: restore after a restart, clearing, and the update
// of one committed entry.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "EntryLogFixture.h"
#include "LinkageFixture.h"
#include "Zev/WorkMeter.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

class SharedStateTest : public LinkageFixture {
 protected:
  using LinkageFixture::LinkageFixture;

  ConfigRows& rows() { return log().tableConfigGlint(table().unitId())->swTableEntries(); }
  // A new process finds the state folder and makes the unit's table.
  void restart() {
    agent_.restart();
    agent_.table();
  }
  std::uint32_t destinationOf(std::uint32_t fecId) {
    return table().entryFromConfig(key(fecId)).resolvedDest.first;
  }
  static std::uint64_t versionOf(const ResourceTable::Dependency& dependency) {
    return dependency->entryTableVersion().logVersion().value();
  }
};

// Restore.

class RestoreTest : public SharedStateTest {
 protected:
  Pell::Ptr<Linkage> linkageOf(Table& table) {
    return LoamFec::fecTableIntfIdToDestIdLinkageFactory(
        &table, Pell::Ptr<ResourceTable::ClientInstance>(&client()));
  }
};

TEST_F(RestoreTest, TwoEntriesOfOneInterfaceGiveOneRecordWithBothAndOneAcknowledgement) {
  commitOn("eth1", {1, 2});
  restart();
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth1"), resKey("eth1")));
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
  EXPECT_THAT(usersOf("eth1"), UnorderedElementsAre(1U, 2U));
  ASSERT_EQ(client().acks.size(), 1U);
  EXPECT_EQ(client().acks[0].key, resKey("eth1"));
  EXPECT_EQ(client().acks[0].updateNumber, 0U);
}

TEST_F(RestoreTest, ARowThatIsMarkedDeletedIsNotRestored) {
  commitOn("eth1", {1});
  commitOn("eth2", {2});
  remove(1);
  agent_.run();
  ASSERT_TRUE(rows().row(key(1))->isDeleted());
  const TraceRecorder recorder({"FecTableSwTable"});
  restart();
  EXPECT_TRUE(rows().row(key(1))->isDeleted());
  EXPECT_EQ(recorder.textsOf("entryWrapperFromConfig"),
            (Texts{"key: 2, refreshRsrcPtrs: true", "key: 2, refreshRsrcPtrs: false"}))
      << "no wrapper is made of it";
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth2")));
  EXPECT_EQ(record("eth1"), nullptr);
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
}

TEST_F(RestoreTest, AnEmptyConfigurationTableRestoresNothing) {
  const TraceRecorder recorder({kTrace, "FecTableSwTable"});
  restart();
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_THAT(client().acks, IsEmpty());
  EXPECT_EQ(recorder.textsOf("restoreEntries"), Texts{""});
  EXPECT_EQ(recorder.find("")->level, 8);
}

TEST_F(RestoreTest, AnEntryOnTheNullInterfaceIsRestoredWithoutRequestOrRecord) {
  writeCommitted(1);
  restart();
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_TRUE(table().entryHas(key(1)));
}

TEST_F(RestoreTest, NothingIsPendingAfterARestoreAndNothingUnchangedIsLogged) {
  commitOn("eth1", {1});
  restart();  // the new process's resource is not resolved yet
  EXPECT_TRUE(nothingPending(1));
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_EQ(logVersion(), 1U);
  EXPECT_EQ(destinationOf(1), 100U);
}

TEST_F(RestoreTest, WhatWasAskedForAndNotCommittedIsGoneAndNobodyIsAnswered) {
  writeCommitted(1, "", 11);
  write(1, "eth1", 12);
  write(2, "eth1");
  agent_.run();
  ASSERT_EQ(resolver().resolverQueueLength(), 2U);
  restart();
  agent_.run();
  agent_.reportAll();
  EXPECT_EQ(table().entryRead(key(1)).opaqueA, 11U);
  EXPECT_FALSE(table().entryHas(key(2)));
  EXPECT_THAT(responses(), IsEmpty());
}

TEST_F(RestoreTest, ARestartShowsAgainWhatAFailedRemoveAllHid) {
  writeCommitted(1);
  removeAll(dependency(EntryState::commitFailed));
  agent_.run();
  ASSERT_FALSE(table().entryHas(key(1)));
  restart();
  EXPECT_TRUE(table().entryHas(key(1)));
  EXPECT_EQ(table().entrys(), 1U);
}

TEST_F(RestoreTest, EveryRestoredEntryIsWrappedWithAFreshRequestAndUpdatedWithout) {
  commitOn("eth1", {1});
  const TraceRecorder recorder({"FecTableSwTable"});
  restart();
  EXPECT_EQ(recorder.textsOf("entryWrapperFromConfig"),
            (Texts{"key: 1, refreshRsrcPtrs: true", "key: 1, refreshRsrcPtrs: false"}));
  EXPECT_EQ(recorder.count(8, "key: 1, refreshRsrcPtrs: true"), 1U);
}

TEST_F(RestoreTest, ATableWithoutAnEntryLogOrAConfigurationTableRestoresAndClearsNothing) {
  const auto bare =
      LoamFec::fecTableSwTableFactory(table().tableName(), table().tableId(), Asic::UnitId(0),
                                      table().status(), nullptr, table().groupResolver());
  bare->intfIdToDestIdLinkageIs(linkageOf(*bare));
  bare->restoreEntries();
  bare->clearTable(true);
  const auto unmounted = LoamFec::fecTableSwTableFactory(
      table().tableName(), table().tableId(), Asic::UnitId(7), table().status(), table().entryLog(),
      table().groupResolver());
  unmounted->intfIdToDestIdLinkageIs(linkageOf(*unmounted));
  unmounted->restoreEntries();
  unmounted->clearTable(true);
  log().tableConfigGlintIs(Asic::UnitId(7), nullptr);  // a mount of another type
  unmounted->restoreEntries();
  unmounted->clearTable(true);
  EXPECT_EQ(logVersion(), 0U);
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(RestoreTest, CorruptionEndsTheWalkAndWhatIsRestoredIsStillDrivenAgain) {
  commitOn("eth1", {1});
  commitOn("eth2", {2});
  commitOn("eth3", {3});
  linkage().entryUsageSmDelAll();
  client().acks.clear();
  RowFile<ConfigRow>(rows()).damageRow(key(2));
  table().restoreEntries();
  EXPECT_EQ(rows().corruptionCount(), 1U);
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U));
  EXPECT_EQ(client().acks.size(), 1U);
}

// Over the platform's resource table, whose owner sets the destinations before the table is made.
class RestartTest : public SharedStateTest {
 protected:
  RestartTest() : SharedStateTest(FecHarness::Resources::real) {
    agent_.destinationIs("eth1", 100);
    write(1, "eth1");
    write(2, "eth1");
    agent_.run();
  }
  void restartWith(std::uint32_t destination) {
    agent_.restart();
    agent_.destinationIs("eth1", destination);
    agent_.table();
    agent_.run();
  }
};

TEST_F(RestartTest, AnUnchangedDestinationLogsNothing) {
  restartWith(100);
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(destinationOf(1), 100U);
  EXPECT_THAT(usersOf("eth1"), UnorderedElementsAre(1U, 2U));
}

TEST_F(RestartTest, ADestinationThatChangedWhileTheAgentWasDownIsLoggedForEveryUser) {
  restartWith(101);
  EXPECT_EQ(logVersion(), 4U);
  EXPECT_EQ(destinationOf(1), 101U);
  EXPECT_EQ(destinationOf(2), 101U);
}

TEST_F(RestartTest, AnUnresolvedDestinationKeepsWhatIsLoggedUntilItIsKnown) {
  agent_.restart();
  agent_.table();
  agent_.run();
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(destinationOf(1), 100U);
  agent_.destinationIs("eth1", 102);
  EXPECT_EQ(logVersion(), 4U) << "though the hardware has applied nothing of the old log";
  EXPECT_EQ(destinationOf(1), 102U);
}

TEST_F(RestartTest, AWriteOnAUsedInterfaceIsCommittedWhileTheHardwareIsBusyWithTheOldLog) {
  agent_.restart();
  agent_.table();
  write(3, "eth1");
  agent_.run();
  EXPECT_FALSE(log().entryHas(key(3), table().unitId())) << "no destination is known yet";
  agent_.destinationIs("eth1", 100);
  EXPECT_TRUE(log().entryHas(key(3), table().unitId()));
  EXPECT_EQ(logVersion(), 3U) << "and nothing is logged again";
}

// Clearing.

class ClearTest : public SharedStateTest {
 protected:
  void SetUp() override {
    commitOn("eth1", {1, 2});
    commitOn("eth2", {3});
    client().acks.clear();
  }
};

TEST_F(ClearTest, ClearingLogsOneTableDeleteAndKeepsEveryUsageRecord) {
  table().clearTable(false);
  EXPECT_EQ(logVersion(), 4U);
  EXPECT_EQ(logRow(4)->operation(), LoamFec::FecTableDataModelLogGlintEntry::kTableDeleted);
  EXPECT_EQ(table().entrys(), 0U);
  EXPECT_EQ(linkage().entryUsageSms(), 2U);
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U, 2U));
  EXPECT_THAT(client().releases, IsEmpty());
}

TEST_F(ClearTest, ClearingWithReleaseEmptiesTheUsageAndReleasesEachHandleOnce) {
  std::optional<std::uint64_t> versionAtRelease;
  Pell::Subscriber recordGone([&](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                                  const void*) { versionAtRelease = logVersion(); });
  linkage().publisher().subscriberAdd(recordGone);
  table().clearTable(true);
  linkage().publisher().subscriberRemove(recordGone);
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  ASSERT_EQ(client().releases.size(), 2U);
  EXPECT_NE(client().releases[0].key, client().releases[1].key);
  EXPECT_EQ(versionAtRelease, 3U) << "released before the delete is logged";
  EXPECT_EQ(logVersion(), 4U);
}

TEST_F(ClearTest, AReleaseOfATableDeleteNamesAHandleThatNeverGetsAVersion) {
  table().clearTable(true);
  agent_.run();
  for (const auto& release : client().releases) {
    ASSERT_TRUE(release.dependency);
    EXPECT_EQ(release.dependency->entryTableVersion(),
              Asic::TableVersion(LoamFec::FecTableConstants::kTableId, Asic::LogVersion()));
    EXPECT_EQ(release.dependency->entryState(), EntryState::notResolved);
  }
}

TEST_F(ClearTest, ClearingIsTracedByTheTableAndByItsGenericStep) {
  const TraceRecorder recorder({"FecTableSwTable"});
  table().clearTable(false);
  EXPECT_EQ(recorder.textsOf("clearTable"), Texts{""});
  EXPECT_EQ(recorder.textsOf("delAllEntries"),
            Texts{" releaseResources: false, neededEntry:null "});
  EXPECT_EQ(recorder.texts(8).size(), 2U);
  table().clearTable(true);
  EXPECT_THAT(recorder, HasTrace(8, " releaseResources: true, neededEntry:null "));
}

TEST_F(ClearTest, ARemoveAllsDeletionCarriesItsNeededVersions) {
  const auto needs = dependency(EntryState::done);
  const TraceRecorder recorder({"FecTableSwTable"});
  removeAll(needs);
  agent_.run();
  EXPECT_EQ(recorder.textsOf("delAllEntries"),
            Texts{" releaseResources: true, neededEntry:{03:01:0806@1} "});
}

TEST_F(ClearTest, ClearingLeavesPendingRequestsAndTheirRecordsAlone) {
  write(1, "eth9", 11);
  remove(2);
  table().clearTable(false);
  EXPECT_NE(pendingWrite(1), nullptr);
  EXPECT_NE(pendingRemove(2), nullptr);
  EXPECT_EQ(resolver().resolverQueueLength(), 2U);
  EXPECT_EQ(table().entrys(), 1U);
}

TEST_F(ClearTest, ClearingSetsNoPendingHardwareWrites) {
  agent_.reportAll();
  ASSERT_FALSE(status().pendingHwWrites());
  table().clearTable(false);
  EXPECT_FALSE(status().pendingHwWrites());
}

TEST_F(ClearTest, AKeyOfAKeptRecordThatIsWrittenOnAnotherInterfaceLeavesTheOldKeyBehind) {
  table().clearTable(false);
  commitOn("eth2", {1});
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U, 2U)) << "a first write: the old use is not known";
  EXPECT_THAT(usersOf("eth2"), ElementsAre(3U, 1U));
  EXPECT_THAT(client().releases, IsEmpty());
}

TEST_F(ClearTest, ADeletedRowThatIsNotCleanedUpReleasesNothingOfItsOwn) {
  commitOn("eth3", {0});
  remove(3);  // the only user of eth2
  agent_.run();
  ASSERT_TRUE(rows().row(key(3))->isDeleted());
  client().releases.clear();
  table().clearTable(true);
  std::vector<ResourceTable::Key> released;
  for (const auto& release : client().releases) {
    released.push_back(release.key);
  }
  EXPECT_THAT(released, UnorderedElementsAre(resKey("eth1"), resKey("eth3")));
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
}

TEST_F(ClearTest, ClearingWithReleaseWrapsEveryRowADeletedOneTooAndAsksForNothing) {
  remove(2);
  agent_.run();
  ASSERT_TRUE(rows().row(key(2))->isDeleted());
  client().requests.clear();
  const TraceRecorder recorder({"FecTableSwTable"});
  table().clearTable(true);
  EXPECT_EQ(recorder.textsOf("entryWrapperFromConfig"),
            (Texts{"key: 1, refreshRsrcPtrs: false", "key: 2, refreshRsrcPtrs: false",
                   "key: 3, refreshRsrcPtrs: false"}));
  EXPECT_THAT(client().requests, IsEmpty());
}

// Of the entries on three interfaces the one in the middle is damaged.
class ClearOverDamageTest : public ClearTest {
 protected:
  void SetUp() override {
    commitOn("eth1", {1});
    commitOn("eth2", {2});
    commitOn("eth3", {3});
    RowFile<ConfigRow>(rows()).damageRow(key(2));
  }
  std::vector<ResourceTable::Key> released() {
    std::vector<ResourceTable::Key> keys;
    for (const auto& release : client().releases) {
      keys.push_back(release.key);
    }
    return keys;
  }
};

TEST_F(ClearOverDamageTest, ARemoveAllReleasesTheInterfacesOfEveryRowThatIsNotDamaged) {
  removeAll();
  agent_.run();
  EXPECT_THAT(released(), UnorderedElementsAre(resKey("eth1"), resKey("eth3")));
  EXPECT_EQ(table().entrys(), 0U);
  EXPECT_EQ(rows().corruptionCount(), 1U);
}

TEST_F(ClearOverDamageTest, TheInterfaceOfADamagedRowStaysInUseUntilTheNextStart) {
  removeAll();
  agent_.run();
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
  EXPECT_THAT(usersOf("eth2"), ElementsAre(2U));
  restart();
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_THAT(client().requests, IsEmpty());
}

TEST_F(ClearOverDamageTest, AResetLeavesNothingThatTheNextStartWouldBringBack) {
  table().clearTable(false);
  restart();
  EXPECT_EQ(table().entrys(), 0U);
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_EQ(log().entrysInDeletion(table().unitId()), 2U);
}

// A configuration table that cannot be used yet.
class UnreadyRows : public ConfigRows {
 public:
  using GlintMap::GlintMap;
  bool isReady() const override { return false; }
};
class UnreadyConfig : public LoamFec::FecTableDataModelConfigGlint {
 public:
  static constexpr const char* kTypeName = "UnreadyConfig";
  explicit UnreadyConfig(const ZevGlint::MountSite& site)
      : FecTableDataModelConfigGlint(site), rows_(site) {}
  ConfigRows& swTableEntries() override { return rows_; }

 private:
  UnreadyRows rows_;
};

TEST_F(ClearTest, ATableThatIsNotReadyGetsNoTableDelete) {
  ZevSharedMem::entityTypeIs(UnreadyConfig::kTypeName, [](const ZevGlint::MountSite& site) {
    return Pell::Ptr<Zev::Entity>(Zev::makeObject<UnreadyConfig>(site));
  });
  const Asic::UnitId unit = table().unitId();
  log().tableConfigGlintIs(
      unit, ZevSharedMem::mountForWriting<UnreadyConfig>(
                log().entityManager(), LoamFec::FecTableConstants::configGlintPath(unit)));

  table().clearTable(true);
  EXPECT_EQ(logVersion(), 3U);
  EXPECT_EQ(table().entrys(), 3U);
  EXPECT_EQ(linkage().entryUsageSms(), 2U);
  EXPECT_THAT(client().releases, IsEmpty());
}

// Update of one entry.

class UpdateTest : public SharedStateTest {
 protected:
  void SetUp() override {
    commitOn("eth1", {5});
    client().acks.clear();
    client().requests.clear();
  }
  // The handle changes without saying so.
  void resourceShows(EntryState state, std::uint32_t destination,
                     Pell::Ptr<Asic::NeededEntry const> needed = nullptr) {
    handle()->contentsAre(state, {destination, 0, 0}, std::move(needed));
  }
};

TEST_F(UpdateTest, AKeyThatIsNotCommittedGivesNullAndALevel3Trace) {
  const TraceRecorder recorder({"FecTableSwTable"});
  EXPECT_EQ(table().updateEntry(key(9)), nullptr);
  EXPECT_THAT(recorder, HasTrace(3, " key: 9 entry does not exist "));
  EXPECT_EQ(recorder.texts().size(), 1U);
  EXPECT_EQ(recorder.records()[0].function, "updateEntry");
}

TEST_F(UpdateTest, AChangedDestinationIsLoggedAndTheHandleSaysUnderWhichVersion) {
  resourceShows(EntryState::done, 101, neededSet({tableVersion(0x806, 9)}));
  const TraceRecorder recorder({"FecTableSwTable"});
  const auto updated = table().updateEntry(key(5));
  ASSERT_TRUE(updated);
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(updated->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(updated->entryState(), EntryState::hwWritePending);
  EXPECT_EQ(logRow(2)->logEntry().resolvedDest.first, 101U);
  EXPECT_EQ(logRow(2)->operation(), LoamFec::FecTableDataModelLogGlintEntry::kEntryWritten);
  EXPECT_EQ(table().entryFromConfig(key(5)).intfId, Wirex::IntfId::fromName("eth1"));
  EXPECT_EQ(destinationOf(5), 101U);
  EXPECT_EQ(recorder.texts(3), Texts{" key: 5, neededEntry: {03:01:0806@9}, entryLogVersion: 2 "});
}

TEST_F(UpdateTest, AnUnchangedDestinationLogsNothingAndGivesTheLogsCurrentVersion) {
  writeCommitted(6);
  const TraceRecorder recorder({"FecTableSwTable"});
  const auto updated = table().updateEntry(key(5));
  ASSERT_TRUE(updated);
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(updated->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(updated->entryState(), EntryState::hwWritePending);
  EXPECT_EQ(recorder.texts(3),
            Texts{" key: 5, commitToLog: true, no change in logEntry or don't commit to log"});
}

TEST_F(UpdateTest, TheCommittedRowIsLookedAtOnce) {
  const auto rowsOfAnUpdate = [this] {
    const Zev::WorkBudget work(0);
    (void)table().updateEntry(key(5));
    return work.used();
  };
  EXPECT_EQ(rowsOfAnUpdate(), 1U) << "nothing has changed";
  resourceShows(EntryState::done, 101);
  EXPECT_EQ(rowsOfAnUpdate(), 4U) << "the row, and three that are logged";
}

TEST_F(UpdateTest, AnUnresolvedResourceLogsNothingEvenIfTheLoggedFormWouldChange) {
  for (const EntryState state : {EntryState::notResolved, EntryState::hwWritePending}) {
    resourceShows(state, 101);
    const TraceRecorder recorder({"FecTableSwTable"});
    const auto updated = table().updateEntry(key(5));
    ASSERT_TRUE(updated);
    EXPECT_EQ(logVersion(), 1U);
    EXPECT_EQ(destinationOf(5), 100U);
    EXPECT_EQ(updated->logVersion(), Asic::LogVersion(1));
    EXPECT_EQ(updated->entryState(), EntryState::hwWritePending);
    EXPECT_EQ(recorder.texts(3),
              (Texts{"key: 5 is still unresolved!",
                     " key: 5, commitToLog: false, no change in logEntry or don't commit to log"}));
    EXPECT_EQ(recorder.textsOf("updateEntry").size(), 2U);
  }
}

TEST_F(UpdateTest, AFailedResourceIsLoggedWithWhatTheFailedHandleGives) {
  resourceShows(EntryState::resourceFailed, 0xFFFF);
  const auto updated = table().updateEntry(key(5));
  EXPECT_EQ(updated->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(updated->entryState(), EntryState::hwWritePending) << "never a failure state";
  EXPECT_EQ(destinationOf(5), 0xFFFFU);
}

TEST_F(UpdateTest, TheResourceTableIsNotAskedAndNothingIsQueuedOrFlagged) {
  agent_.reportAll();
  resourceShows(EntryState::done, 101);
  const auto helper = Zev::makeObject<ScriptedHelper>();
  table().swTableHelperIs(helper);
  ASSERT_TRUE(table().updateEntry(key(5)));
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_EQ(table().entryHandlesInLog(), 0U);
  EXPECT_FALSE(status().pendingHwWrites());
  EXPECT_THAT(helper->successes, IsEmpty());
  EXPECT_TRUE(nothingPending(5));
}

TEST_F(UpdateTest, AnEntryWithoutAHandleIsLoggedWithTheUnsetDestination) {
  linkage().entryUsageSmDel(resKey("eth1"));
  const auto updated = table().updateEntry(key(5));
  EXPECT_EQ(updated->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(destinationOf(5), 0xFFFFU);
}

TEST_F(UpdateTest, AnEntryOnTheNullInterfaceIsUnchanged) {
  writeCommitted(6);
  const auto updated = table().updateEntry(key(6));
  EXPECT_EQ(updated->logVersion(), Asic::LogVersion(2));
  EXPECT_EQ(logVersion(), 2U);
}

TEST_F(UpdateTest, WhatTheClientWroteStaysAsItIs) {
  LoamFec::FecTableDataModelEntry written = FecHarness::entry("eth1", 77);
  written.flagA = 1;
  written.opaqueB = 88;
  written.clientDest.first = 99;
  table().entryWrite(key(5), written, nullptr);
  agent_.run();
  resourceShows(EntryState::done, 101);
  table().updateEntry(key(5));
  const auto updated = table().entryFromConfig(key(5));
  written.key = key(5);
  written.resolvedDest.first = 101;
  EXPECT_THAT(updated, IsEq(written));
}

}  // namespace
