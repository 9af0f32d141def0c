// SPDX-License-Identifier: Apache-2.0

// Tables that end while requests wait for them, units that end as a whole, and how many units there
// may be.

#include <memory>
#include <string>
#include <vector>

#include "FecTableFixture.h"
#include "Glint/MountInfo.h"

namespace {

using namespace fec_test;
using LoamFec::FecTableLogRoomException;
using LoamFec::FecTableUnitsException;
using HandlePtr = Pell::Ptr<Asic::OrderedSwTable::EntryHandle const>;

class FecTableEndTest : public LeakCheckedTest {
 protected:
  static constexpr Asic::UnitId kUnit{0};

  FecTableSwTable& table(std::uint16_t unit = 0) { return agent_.table(unit); }
  Pell::Ptr<FecTableSwTable::EntryHandle const> write(std::uint16_t unit, std::uint32_t fecId,
                                                      const Pell::String& intf = "") {
    return table(unit).entryWriteWithResponseHandler(
        FecHarness::key(fecId), FecHarness::entry(intf, fecId), nullptr, agent_.recordResponse());
  }
  // Lets go of the unit's table wherever it is held; nothing more is done for it.
  void dropTable(std::uint16_t unit = 0) {
    agent_.group()->swTableSet(FecTableConstants::kTableId)->swTableDel(Asic::UnitId(unit));
    agent_.fec().swTableDel(Asic::UnitId(unit));
  }
  std::uint32_t waiting() { return agent_.group()->groupResolver()->resolverQueueLength(); }
  static std::int64_t liveTables() { return Zev::trackerOf<FecTableSwTable>().live(); }
  static std::int64_t liveEntries() { return Zev::trackerOf<FecTableResolverEntry>().live(); }
  std::vector<std::uint32_t> answered() const {
    std::vector<std::uint32_t> keys;
    for (const Response& response : agent_.responses) {
      keys.push_back(response.key.fecId());
    }
    return keys;
  }

  FecHarness agent_;
};

// A table that ends.

TEST_F(FecTableEndTest, ATableThatIsMadeAgainWhileARequestWaitsLeavesNoneOfItsOwn) {
  const auto handle = write(0, 5, "eth1");
  agent_.run();
  ASSERT_EQ(waiting(), 1U);
  agent_.fec().swTableDel(kUnit);
  agent_.makeTable(0);
  EXPECT_EQ(liveTables(), 1);
  EXPECT_EQ(liveEntries(), 0);
  EXPECT_EQ(waiting(), 0U);
  agent_.destinationIs("eth1", 7);
  EXPECT_EQ(handle->entryState(), EntryState::notResolved);
  EXPECT_FALSE(table().entryHas(FecHarness::key(5)));
  EXPECT_THAT(answered(), IsEmpty());
}

TEST_F(FecTableEndTest, EntriesOfOtherTablesKeepTheirPlaces) {
  write(1, 4, "eth1");
  write(0, 5, "eth1");
  write(1, 6, "eth1");
  write(0, 7, "eth1");
  agent_.run();
  dropTable(0);
  EXPECT_EQ(waiting(), 2U);
  agent_.destinationIs("eth1", 7);
  agent_.reportAll();
  EXPECT_THAT(answered(), ElementsAre(4, 6));
}

TEST_F(FecTableEndTest, ASuccessHandlerMayDropItsTableWhileRequestsWait) {
  FecTableSwTable& doomed = table();
  doomed.entryWriteWithResponseHandler(FecHarness::key(1), FecHarness::entry(""), nullptr,
                                       [this](const HandlePtr&) { dropTable(); });
  for (const std::uint32_t fecId : {2U, 3U}) {
    write(0, fecId, "eth1");
  }
  agent_.run();
  agent_.reportAll();
  EXPECT_EQ(liveTables(), 0);
  EXPECT_EQ(liveEntries(), 0);
  agent_.destinationIs("eth1", 7);
  EXPECT_EQ(waiting(), 0U);
}

TEST_F(FecTableEndTest, AFailureHandlerMayDropItsTableInTheMiddleOfAWalkOverItsEntries) {
  const auto failed = Zev::makeObject<FakeDependency>();
  failed->stateIs(EntryState::commitFailed);
  write(0, 4, "eth1");
  table().entryWriteWithResponseHandler(FecHarness::key(5), FecHarness::entry(""), failed,
                                        [this](const HandlePtr&) { dropTable(); });
  const auto behind = write(0, 6);
  const auto neighbour = write(1, 7);
  agent_.run();
  EXPECT_EQ(liveTables(), 1);
  EXPECT_EQ(liveEntries(), 0);
  EXPECT_EQ(behind->entryState(), EntryState::notResolved);
  EXPECT_EQ(neighbour->entryState(), EntryState::hwWritePending) << "the walk goes on";
}

TEST_F(FecTableEndTest, AnotherTablesHandlerMayEndATableWhoseEntriesTheWalkHasNotReached) {
  const auto failed = Zev::makeObject<FakeDependency>();
  failed->stateIs(EntryState::commitFailed);
  table(1).entryWriteWithResponseHandler(FecHarness::key(5), FecHarness::entry(""), failed,
                                         [this](const HandlePtr&) { agent_.fec().unitDel(kUnit); });
  const auto behind = write(0, 6);
  agent_.run();
  EXPECT_EQ(liveTables(), 1);
  EXPECT_EQ(liveEntries(), 0);
  EXPECT_EQ(behind->entryState(), EntryState::notResolved);
}

TEST_F(FecTableEndTest, AQueueThatATablesEndShortensLetsRequestsComeAgain) {
  for (std::uint32_t fecId = 0; fecId <= FecTableConstants::kSuspendAbove; ++fecId) {
    table().entryRemove(FecHarness::key(fecId), nullptr);
  }
  const Pell::Ptr<Asic::OrderedSwTableStatus> status = table().status();
  ASSERT_TRUE(status->suspend());
  dropTable();
  EXPECT_EQ(waiting(), 0U);
  EXPECT_FALSE(status->suspend());
}

// A unit that ends.

TEST_F(FecTableEndTest, AUnitEndsInTheInterfaceTheSetAndTheResolverAtOnce) {
  const Pell::Ptr<FecTableSwTable> held(&table());
  write(0, 5, "eth1");
  write(0, 6);
  write(1, 7, "eth1");
  agent_.run();
  TraceRecorder traces({"FecTableInterface"});
  agent_.fec().unitDel(kUnit);
  EXPECT_THAT(traces, HasTrace(2, "unitId: 0"));
  EXPECT_FALSE(agent_.fec().swTable(kUnit));
  EXPECT_FALSE(agent_.group()->swTableSet(FecTableConstants::kTableId)->swTable(kUnit));
  EXPECT_EQ(waiting(), 1U) << "the other unit's";
  agent_.destinationIs("eth1", 7);
  agent_.reportAll();
  EXPECT_THAT(answered(), ElementsAre(7)) << "neither what waited nor what was logged is answered";
  EXPECT_TRUE(held->entryHas(FecHarness::key(6))) << "what is committed stays and can be read";
}

TEST_F(FecTableEndTest, AUnitThatEndsIsFoundNoMoreWhenItsRequestsGo) {
  table();
  std::vector<bool> found;
  {
    const std::shared_ptr<void> told(nullptr, [&](void*) {
      found.push_back(agent_.fec().swTable(kUnit) != nullptr);
      found.push_back(agent_.group()->swTableSet(FecTableConstants::kTableId)->swTable(kUnit) !=
                      nullptr);
    });
    table().entryWriteWithResponseHandler(FecHarness::key(5), FecHarness::entry("eth1", 5), nullptr,
                                          [told](const HandlePtr&) {});
  }
  EXPECT_THAT(found, IsEmpty());
  const Pell::Ptr<FecTableSwTable> held(&table());
  held->transientAddEntryDelAll();
  agent_.fec().unitDel(kUnit);
  EXPECT_THAT(found, ElementsAre(false, false));
}

TEST_F(FecTableEndTest, AUnitThatEndedCanBeMadeAgainAndFindsWhatWasCommitted) {
  write(0, 5);
  agent_.run();
  agent_.fec().unitDel(kUnit);
  EXPECT_EQ(liveTables(), 0);
  EXPECT_TRUE(agent_.makeTable(0)->entryHas(FecHarness::key(5)));
  write(0, 6);
  agent_.run();
  agent_.reportAll();
  EXPECT_THAT(answered(), ElementsAre(6));
}

TEST_F(FecTableEndTest, ADeletionThatWaitsForTheHardwareIsCleanedUpAfterItsUnitHasEnded) {
  write(0, 5);
  agent_.run();
  table().entryRemove(FecHarness::key(5), nullptr);
  agent_.run();
  table(1);
  agent_.fec().unitDel(kUnit);
  agent_.reportAll();
  EXPECT_EQ(agent_.log().entrysInDeletion(kUnit), 0U);
}

// What the new table has written on another interface is not taken for the former table's.
TEST_F(FecTableEndTest, ATableThatIsHeldBeyondItsUnitsEndDrivesNothingAnyMore) {
  for (const bool endsUnit : {true, false}) {
    agent_.destinationIs("eth1", 100);
    agent_.destinationIs("eth2", 200);
    const Pell::Ptr<FecTableSwTable> held(&table());
    write(0, 5, "eth1");
    agent_.run();
    if (endsUnit) {
      agent_.fec().unitDel(kUnit);
    } else {
      agent_.fec().swTableDel(kUnit);
    }
    agent_.makeTable(0);
    EXPECT_EQ(held->intfIdToDestIdLinkage()->entryUsageSms(), 0U);
    write(0, 5, "eth2");
    agent_.run();
    agent_.reportAll();
    agent_.destinationIs("eth1", 101);
    EXPECT_EQ(table().entryRead(FecHarness::key(5)).resolvedDest.first, 200U);
    agent_.reportAll();
    agent_.destinationIs("eth1", 102);
    EXPECT_EQ(agent_.resources().waitingUpdates(), 0U) << "and holds nothing back";
  }
}

TEST_F(FecTableEndTest, WhatIsReportedWhileThereIsNoUnitIsCleanedUpByTheNext) {
  write(0, 5);
  write(0, 6);
  agent_.run();
  const Pell::Ptr<Asic::OrderedSwTableStatus> status = table().status();
  agent_.fec().unitDel(kUnit);
  agent_.report(1);
  ASSERT_EQ(agent_.log().entryLogConfigRows(), 2U);
  agent_.makeTable(0);
  EXPECT_EQ(agent_.log().entryLogConfigRows(), 1U);
  EXPECT_TRUE(status->pendingHwWrites()) << "version 2 is still to come";
  agent_.fec().unitDel(kUnit);
  agent_.report(2);
  agent_.makeTable(7);
  EXPECT_EQ(agent_.log().entryLogConfigRows(), 0U);
  EXPECT_FALSE(status->pendingHwWrites());
}

TEST_F(FecTableEndTest, EndingAUnitWithoutATableDoesNothing) {
  write(1, 7, "eth1");
  agent_.run();
  const TraceRecorder traces({"FecTableInterface"});
  agent_.fec().unitDel(kUnit);
  EXPECT_THAT(traces.records(), IsEmpty());
  EXPECT_EQ(waiting(), 1U);
}

// How many units there may be.

TEST_F(FecTableEndTest, ThereAreAtMost16Units) {
  static_assert(FecTableConstants::kMaxUnits == 16);
  for (std::uint16_t unit = 0; unit < 15; ++unit) {
    agent_.makeTable(unit);
  }
  EXPECT_NO_THROW(agent_.makeTable(4000));
  try {
    agent_.makeTable(16);
    ADD_FAILURE() << "a 17th unit was made";
  } catch (const FecTableUnitsException& error) {
    EXPECT_STREQ(error.what(),
                 "unit 16: there are 16 units already, and the logs have no room for more; use at "
                 "most 16 units");
  }
  EXPECT_FALSE(agent_.log().tableConfigGlintHas(Asic::UnitId(16))) << "nothing was mounted";
  EXPECT_NO_THROW(agent_.makeTable(3)) << "a unit that is there is no further one";
  agent_.fec().unitDel(Asic::UnitId(3));
  EXPECT_NO_THROW(agent_.makeTable(16)) << "one has ended";
}

TEST_F(FecTableEndTest, TheLogHasRoomToDriveEveryEntryOf16UnitsAgainOnTopOfItsCapacity) {
  table();
  EXPECT_EQ(agent_.log().tableEntryLog()->entryLogConfig().slotCount(), 100000U + 16U * 65536U);
}

// What a restart has to log again.

class FullLogRestartTest : public FecTableEndTest {
 protected:
  // Two entries of one interface; then the hardware stalls, and rows of long ago leave `room` slots
  // of the log free.
  void stallWithRoom(std::uint32_t room) {
    agent_.destinationIs("eth1", 1);
    write(0, 5, "eth1");
    write(0, 6, "eth1");
    agent_.run();
    auto& rows = agent_.log().tableEntryLog()->entryLogConfig();
    for (std::uint64_t filler = 10'000'000; rows.rowCount() + room < rows.slotCount(); ++filler) {
      agent_.log().tableEntryLog()->entryLogConfigIs(
          {Asic::LogVersion(filler), 0, kUnit, FecTableDataModelLogEntry()});
    }
  }
  // The interface has another destination when the table is restored.
  void restart() {
    agent_.restart();
    agent_.destinationIs("eth1", 2);
    agent_.makeTable(0);
  }
};

TEST_F(FullLogRestartTest, WhatFitsIsLoggedAgain) {
  stallWithRoom(2);
  ASSERT_NO_THROW(restart());
  EXPECT_EQ(table().entryRead(FecHarness::key(5)).resolvedDest.first, 2U);
  EXPECT_EQ(table().entryRead(FecHarness::key(6)).resolvedDest.first, 2U);
}

TEST_F(FullLogRestartTest, OneEntryMoreIsAnErrorThatSaysWhatToDoAndNotTheAgentsEnd) {
  stallWithRoom(1);
  try {
    restart();
    ADD_FAILURE() << "there was room";
  } catch (const FecTableLogRoomException& error) {
    EXPECT_THAT(error.what(),
                ::testing::EndsWith("LoamAdj.LoamAdj.FecTable.log.table: unit 0 has entries to log "
                                    "again, but all rows of this log (1148576) or of its group's "
                                    "are taken by changes that the hardware has not applied; let "
                                    "it apply them, or begin with empty tables"));
  }
  EXPECT_FALSE(agent_.fec().swTable(kUnit));
  EXPECT_EQ(liveTables(), 0);
}

TEST_F(FullLogRestartTest, WhatHasNotChangedNeedsNoRoom) {
  stallWithRoom(0);
  agent_.restart();
  agent_.destinationIs("eth1", 1);
  EXPECT_NO_THROW(agent_.makeTable(0));
  EXPECT_TRUE(table().entryHas(FecHarness::key(5)));
}

}  // namespace
