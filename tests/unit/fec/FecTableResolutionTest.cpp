// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <string>
#include <vector>

#include "FecTableFixture.h"
#include "testing/Printers.h"

namespace {

using namespace fec_test;

// Flags of a write, a remove and a remove-all.
constexpr std::uint8_t kOperations[] = {0, 1, 2};

class FecTableResolutionTest : public FecTableFixture {
 protected:
  using FecTableFixture::FecTableFixture;

  Pell::Ptr<FecTableEntryWrapper> wrapper(std::uint32_t fecId, const Pell::String& intf) {
    FecTableDataModelEntry entry = FecHarness::entry(intf);
    entry.key = key(fecId);
    return FecTableEntryWrapper::FecTableEntryWrapperIs(
        entry, Table::entryHandleFactory(Asic::EntryVersion(), key(fecId), &table()));
  }
  // Asks the table about an operation that stands in no queue.
  bool resolved(std::uint8_t flags, std::uint32_t fecId, const Pell::String& intf = "",
                const Dependency& other = nullptr) {
    return table().isResolverEntryResolved(FecTableResolverEntry::FecTableResolverEntryIs(
        other, Asic::EntryFlags(flags), &table(), wrapper(fecId, intf)));
  }
};

// Log room.

class LogRoomTest : public FecTableResolutionTest {
 protected:
  // Puts rows of versions far above those of the test into the log until it holds so many.
  void fillLogTo(std::uint32_t rows, Asic::UnitId unit = Asic::UnitId(0)) {
    while (log().entryLogConfigRows() < rows) {
      log().tableEntryLog()->entryLogConfigIs({Asic::LogVersion(++filler_),
                                               FecTableDataModelLogGlintEntry::kEntryWritten, unit,
                                               FecTableDataModelLogEntry()});
    }
    ASSERT_EQ(log().entryLogConfigRows(), rows);
  }

 private:
  std::uint64_t filler_ = 1'000'000;
};

TEST_F(LogRoomTest, NothingResolvesFromAHundredThousandRowsOn) {
  for (const std::uint32_t rows : {99999U, 100000U, 100001U}) {
    fillLogTo(rows);
    const bool hasRoom = rows < 100000;
    EXPECT_EQ(resolved(0, 5), hasRoom) << "write at " << rows;
    EXPECT_EQ(resolved(1, 5), hasRoom) << "remove at " << rows;
    EXPECT_EQ(resolved(2, 5), hasRoom) << "remove-all at " << rows;
  }
}

TEST_F(LogRoomTest, TheRowsOfOtherUnitsCountToo) {
  fillLogTo(99999, Asic::UnitId(1));
  EXPECT_TRUE(resolved(0, 5));
  fillLogTo(100000, Asic::UnitId(1));
  EXPECT_FALSE(resolved(0, 5));
}

TEST_F(LogRoomTest, AFullLogIsTracedAndAskedForNothingElse) {
  fillLogTo(100000);
  const TraceRecorder traces({"FecTableSwTable"});
  EXPECT_FALSE(resolved(0, 5, "eth1", dependency(State::notResolved)));
  EXPECT_FALSE(resolved(1, 6));
  EXPECT_FALSE(resolved(2, 7));
  EXPECT_THAT(
      lines(traces),
      ElementsAre(
          "1 isResolverEntryResolved|key: 5, isEntryDeleted: false : no space in entryLog!|",
          "1 isResolverEntryResolved|key: 6, isEntryDeleted: true : no space in entryLog!|",
          "1 isResolverEntryResolved|key: 7, isEntryDeleted: false : no space in entryLog!|"));
  EXPECT_THAT(agent_.client().requests, IsEmpty());
}

TEST_F(LogRoomTest, TheLastRoomGoesToOneOperationAndAReportLetsTheOthersFollow) {
  fillLogTo(99999);
  const Handle written = write(5);
  const Handle removed = remove(6);
  removeAll();
  agent_.run();
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_EQ(log().entryLogConfigRows(), 100000U);
  EXPECT_EQ(removed->entryState(), State::notResolved);
  EXPECT_EQ(resolver().resolverQueueLength(), 2U);
  generation();
  EXPECT_EQ(resolver().resolverQueueLength(), 2U) << "asked again, and still no room";
  agent_.report(1);
  agent_.run();
  EXPECT_EQ(removed->entryState(), State::hwWritePending);
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

// The room of the group log, which an operation takes more of the more tables it needs.

class GroupLogRoomTest : public LogRoomTest {
 protected:
  static constexpr Asic::SwTableId kOtherTable{0x03010806};

  Asic::GroupLog& groupLog() { return *agent_.group()->groupLog(); }
  static Pell::Ptr<Asic::NeededEntry> needs(std::uint32_t tables) {
    auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (std::uint32_t i = 0; i < tables; ++i) {
      needed->add({Asic::SwTableId(0x04000000 + i), Asic::LogVersion(1)});
    }
    return needed;
  }
  // Another table of the group announces operations until the group log holds so many rows.
  void fillGroupLogTo(std::uint32_t rows) {
    while (groupLog().logMap().rowCount() < rows) {
      groupLog().addGroupLogEntry(kOtherTable, Asic::LogVersion(++announced_), nullptr);
    }
    ASSERT_EQ(groupLog().logMap().rowCount(), rows);
  }

  std::uint64_t announced_ = 0;
};

TEST_F(GroupLogRoomTest, NothingResolvesFromAHundredThousandRowsOn) {
  for (const std::uint32_t rows : {99999U, 100000U, 100001U}) {
    fillGroupLogTo(rows);
    const bool hasRoom = rows < 100000;
    EXPECT_EQ(resolved(0, 5), hasRoom) << "write at " << rows;
    EXPECT_EQ(resolved(1, 5), hasRoom) << "remove at " << rows;
    EXPECT_EQ(resolved(2, 5), hasRoom) << "remove-all at " << rows;
  }
}

TEST_F(GroupLogRoomTest, AFullGroupLogIsTracedBehindAFullEntryLog) {
  fillGroupLogTo(100000);
  TraceRecorder traces({"FecTableSwTable"});
  EXPECT_FALSE(resolved(0, 5, "eth1", dependency(State::notResolved)));
  EXPECT_THAT(
      lines(traces),
      ElementsAre(
          "1 isResolverEntryResolved|key: 5, isEntryDeleted: false : no space in the group log!|"));
  traces.clear();
  fillLogTo(100000);
  EXPECT_FALSE(resolved(1, 5));
  EXPECT_THAT(lines(traces),
              ElementsAre("1 isResolverEntryResolved|key: 5, isEntryDeleted: true : no space in "
                          "entryLog!|"));
}

TEST_F(GroupLogRoomTest, RequestsThatNeedThousandsOfTablesWaitForRoomAndAllFollow) {
  constexpr std::uint32_t kTables = 65536;  // 8192 rows per operation
  agent_.client().handle("eth1")->contentsAre(State::done, {7, 0, 0}, needs(kTables));
  std::vector<Handle> written;
  for (std::uint32_t fecId = 1; fecId <= 30; ++fecId) {
    written.push_back(write(fecId, "eth1"));
  }
  agent_.run();
  EXPECT_EQ(logVersion(), 13U) << "the 13th passes the bound";
  EXPECT_EQ(resolver().resolverQueueLength(), 17U);
  agent_.report(13);
  agent_.run();
  EXPECT_EQ(logVersion(), 26U) << "woken by the report";
  agent_.reportAll();
  agent_.run();
  agent_.reportAll();
  EXPECT_THAT(responses(), SizeIs(30));
  EXPECT_EQ(groupLog().logMap().rowCount(), 0U);
}

// Dependencies.

TEST_F(FecTableResolutionTest, AnUnresolvedDependencyHoldsBackEveryKindOfOperation) {
  const TraceRecorder traces({"FecTableSwTable"});
  for (const std::uint8_t flags : kOperations) {
    EXPECT_FALSE(resolved(flags, 5, "eth1", dependency(State::notResolved)));
  }
  EXPECT_EQ(traces.count(3, "key: 5 dependant entry not yet resolved"), 3U);
  EXPECT_EQ(traces.records().size(), 3U);
  EXPECT_THAT(agent_.client().requests, IsEmpty());
}

TEST_F(FecTableResolutionTest, ADependencyInAnyOtherStateCountsAsResolved) {
  for (std::uint8_t state = 1; state <= 6; ++state) {
    const TraceRecorder traces({"FecTableSwTable"});
    for (const std::uint8_t flags : kOperations) {
      EXPECT_TRUE(resolved(flags, 5, "", dependency(State{state})));
    }
    EXPECT_EQ(traces.count(3, "key: 5 dependant entry is resolved"), 3U);
  }
}

TEST_F(FecTableResolutionTest, ARemoveWaitsForItsDependencyAndFailsWithIt) {
  const auto other = dependency(State::notResolved);
  const Handle removed = remove(5, other);
  agent_.run();
  EXPECT_EQ(removed->entryState(), State::notResolved);
  EXPECT_EQ(resolver().resolverQueueLength(), 1U);
  other->stateIs(State::commitFailed);
  agent_.run();
  EXPECT_EQ(removed->entryState(), State::commitFailed);
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableResolutionTest, ADependencyThatLeavesItsStateWakesWhatWaitsForIt) {
  const auto other = dependency(State::notResolved);
  const Handle written = write(5, "", 0, other);
  agent_.run();
  EXPECT_EQ(written->entryState(), State::notResolved);
  other->stateIs(State::hwWritePending);
  EXPECT_EQ(written->entryState(), State::notResolved) << "not inside the call";
  agent_.run();
  EXPECT_EQ(written->entryState(), State::hwWritePending);
}

// Resources.

TEST_F(FecTableResolutionTest, AWriteIsCheckedStepByStep) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  const TraceRecorder traces({"FecTableSwTable"});
  EXPECT_TRUE(resolved(0, 5, "eth1", dependency(State::done)));
  EXPECT_THAT(lines(traces),
              ElementsAre("3 isResolverEntryResolved|key: 5 dependant entry is resolved|",
                          "8 setRsrcPtrs|key: 5, refresh: true|",
                          "3 isResolverEntryResolved|key: 5, isEntryDeleted: false, "
                          "isTableDeleted: false, resolved: true|"));
}

TEST_F(FecTableResolutionTest, AWriteWithoutResourceIsTracedUnderTheAccessorsName) {
  const TraceRecorder traces({"FecTableSwTable"});
  EXPECT_FALSE(resolved(0, 5, "eth1"));
  EXPECT_THAT(lines(traces),
              ElementsAre("8 setRsrcPtrs|key: 5, refresh: true|",
                          "3 resAccessorCheckResolved|key: 5 is still unresolved!|"));
}

TEST_F(FecTableResolutionTest, ARemoveNeedsNoResource) {
  const TraceRecorder traces({"FecTableSwTable"});
  EXPECT_TRUE(resolved(1, 5, "eth1"));
  EXPECT_THAT(lines(traces), ElementsAre("3 isResolverEntryResolved|key: 5, isEntryDeleted: true, "
                                         "isTableDeleted: false, resolved: true|"));
  EXPECT_THAT(agent_.client().requests, IsEmpty());
}

TEST_F(FecTableResolutionTest, ARemoveAllIsCheckedLikeAWriteAndAsksForNothing) {
  const TraceRecorder traces({"FecTableSwTable"});
  removeAll();
  agent_.run();
  EXPECT_THAT(traces, HasTrace(8, "key: 0, refresh: true"));
  EXPECT_THAT(traces,
              HasTrace(3, "key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true"));
  EXPECT_THAT(agent_.client().requests, IsEmpty());
  EXPECT_EQ(resolver().resolverQueueLength(), 0U);
}

TEST_F(FecTableResolutionTest, AWriteResolvesInEveryStateOfItsResourceBeyondPending) {
  for (std::uint8_t state = 0; state <= 5; ++state) {
    agent_.client().handle("eth1")->contentsAre(State{state}, {100, 0, 0});
    EXPECT_EQ(resolved(0, 5, "eth1"), state > 1) << "state " << int{state};
  }
}

TEST_F(FecTableResolutionTest, AWriteIsRetriedUntilItsResourceLeavesStateZero) {
  const Handle written = write(5, "eth1");
  const std::size_t requestsOfTheWrite = agent_.client().requests.size();
  agent_.run();
  generation();
  resourceIs("eth1", State::hwWritePending);
  EXPECT_EQ(written->entryState(), State::notResolved);
  EXPECT_THAT(agent_.client().requests, SizeIs(requestsOfTheWrite + 3)) << "once per generation";
  resourceIs("eth1", State::done, 100);
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_THAT(agent_.client().requests, SizeIs(requestsOfTheWrite + 4));
}

class RealResourcesTest : public FecTableResolutionTest {
 protected:
  RealResourcesTest() : FecTableResolutionTest(FecHarness::Resources::real) {}
};

TEST_F(RealResourcesTest, AResourceThatGetsItsDestinationWakesWhatWaitsForIt) {
  const Handle written = write(5, "eth1");
  const Handle other = write(6, "eth2");
  agent_.run();
  EXPECT_EQ(written->entryState(), State::notResolved);
  agent_.destinationIs("eth1", 100);
  EXPECT_EQ(written->entryState(), State::hwWritePending);
  EXPECT_EQ(table().entryRead(key(5)).resolvedDest.first, 100U);
  EXPECT_EQ(other->entryState(), State::notResolved) << "its interface still has none";
}

TEST_F(RealResourcesTest, AResourceThatFailsWakesWhatWaitsForItToFail) {
  const Handle written = write(5, "eth1");
  agent_.run();
  agent_.resources().destinationFailed(Wirex::IntfId::fromName("eth1"));
  agent_.run();
  EXPECT_EQ(written->entryState(), State::commitFailed);
  EXPECT_THAT(responses(), SizeIs(1));
}

// Resource pointers and needed sets.

TEST_F(FecTableResolutionTest, ResourcePointersAreRefreshedOnlyOnDemand) {
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0});
  writeCommitted(5, "eth1");
  agent_.client().requests.clear();
  const TraceRecorder traces({"FecTableSwTable"});
  const auto user = wrapper(6, "eth1");
  table().setRsrcPtrs(user, false);
  EXPECT_EQ(user->intfIdResPtr(), agent_.client().handle("eth1"));
  EXPECT_THAT(agent_.client().requests, IsEmpty()) << "the handle of the usage record";
  const auto stranger = wrapper(7, "eth2");
  table().setRsrcPtrs(stranger, false);
  EXPECT_FALSE(stranger->intfIdResPtr()) << "nobody uses that interface";
  table().setRsrcPtrs(stranger, true);
  EXPECT_EQ(stranger->intfIdResPtr(), agent_.client().handle("eth2"));
  EXPECT_THAT(lines(traces), ElementsAre("8 setRsrcPtrs|key: 6, refresh: false|",
                                         "8 setRsrcPtrs|key: 7, refresh: false|",
                                         "8 setRsrcPtrs|key: 7, refresh: true|"));
}

TEST_F(FecTableResolutionTest, TheNeededSetIsAFreshCopyOfWhatTheLinkageReports) {
  const auto own = Zev::makeObject<Asic::NeededEntry>();
  const Asic::TableVersion version(Asic::SwTableId(0x03010807), Asic::LogVersion(4));
  own->add(version);
  agent_.client().handle("eth1")->contentsAre(State::done, {100, 0, 0}, own);
  const auto user = wrapper(5, "eth1");
  table().setRsrcPtrs(user, true);
  const std::int64_t before = Zev::trackerOf<Asic::NeededEntry>().live();
  const TraceRecorder traces({"FecTableSwTable"});
  const auto needed = table().getNeededEntrySet(user);
  EXPECT_THAT(lines(traces), ElementsAre("8 getNeededEntrySet|key: 5|"));
  ASSERT_TRUE(needed);
  EXPECT_NE(needed, own);
  EXPECT_TRUE(needed->hasNotificationActive());
  EXPECT_EQ(Zev::trackerOf<Asic::NeededEntry>().live(), before + 1);
  EXPECT_THAT(std::vector<Asic::TableVersion>(needed->tableVersions().begin(),
                                              needed->tableVersions().end()),
              ElementsAre(version));
}

TEST_F(FecTableResolutionTest, TheNeededSetOfAnEntryWithoutInterfaceIsEmptyAndNeverNull) {
  const auto needed = table().getNeededEntrySet(wrapper(5, ""));
  ASSERT_TRUE(needed);
  EXPECT_THAT(needed->tableVersions(), IsEmpty());
}

}  // namespace
