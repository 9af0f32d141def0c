// SPDX-License-Identifier: Apache-2.0

// Every outward step of the start and the end of the FEC table's parts, in order, compared as a
// whole.

#include "StepsFixture.h"

namespace {

using namespace fec_test;

class FecTableInterfaceStepsTest : public StepsFixture {};

TEST_F(FecTableInterfaceStepsTest, AStartWhoseHardwareHasNeverReported) {
  commitOn("", {kKey});
  restart();
  EXPECT_EQ(take(), R"(
8 FecTableInterface::handleInitialized | Creating entry log for 03:01:0805|
8 FecTableEntryLog::handleInitialized ||
8 FecTableEntryLog::mountGlintChangeLog ||
2 FecTableEntryLog::mountGlintChangeLog | Mounted entryLog: LoamAdj.LoamAdj.FecTable.log, tableVersion: 5000000001|
2 FecTableInterface::handleInitialized | Entry log created for table id: 03:01:0805 at version: 5000000001|
)");
  EXPECT_FALSE(agent_.fec().swTableStatus()->pendingHwWrites());
}

TEST_F(FecTableInterfaceStepsTest, AStartWhoseLogIsAheadOfTheHardware) {
  commitOn("", {kKey, kOther});
  stop();
  agent_.restart();
  agent_.group()->groupLog()->tableVersionIs({FecTableConstants::kTableId, LogVersion(kBase + 1)});
  restart();
  EXPECT_EQ(take(), R"(
8 FecTableInterface::handleInitialized | Creating entry log for 03:01:0805|
8 FecTableEntryLog::handleInitialized ||
8 FecTableEntryLog::mountGlintChangeLog ||
2 FecTableEntryLog::mountGlintChangeLog | Mounted entryLog: LoamAdj.LoamAdj.FecTable.log, tableVersion: 5000000002|
8 FecTableEntryLog::cleanupEntryLog | version 5000000001|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 removed
3 FecTableEntryLog::cleanupEntryLog | configGlint not found for unitId: 7|
3 FecTableInterface::handleInitialized | Cleaned entry log until table version: 5000000001|
2 FecTableInterface::handleInitialized | Entry log created for table id: 03:01:0805 at version: 5000000002|
)");
  EXPECT_TRUE(agent_.fec().swTableStatus()->pendingHwWrites());
}

TEST_F(FecTableInterfaceStepsTest, AStartWhoseHardwareHasAppliedEverything) {
  commitOn("", {kKey});
  stop();
  agent_.restart();
  agent_.group()->groupLog()->tableVersionIs({FecTableConstants::kTableId, LogVersion(kBase + 1)});
  restart();
  EXPECT_EQ(take(), R"(
8 FecTableInterface::handleInitialized | Creating entry log for 03:01:0805|
8 FecTableEntryLog::handleInitialized ||
8 FecTableEntryLog::mountGlintChangeLog ||
2 FecTableEntryLog::mountGlintChangeLog | Mounted entryLog: LoamAdj.LoamAdj.FecTable.log, tableVersion: 5000000001|
8 FecTableEntryLog::cleanupEntryLog | version 5000000001|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 removed
3 FecTableEntryLog::cleanupEntryLog | configGlint not found for unitId: 7|
3 FecTableInterface::handleInitialized | Cleaned entry log until table version: 5000000001|
2 FecTableInterface::handleInitialized | Entry log created for table id: 03:01:0805 at version: 5000000001|
)");
  EXPECT_FALSE(agent_.fec().swTableStatus()->pendingHwWrites());
}

// Making a table.

class FecTableMakeStepsTest : public StepsFixture {
 protected:
  static constexpr std::uint16_t kNewUnit = 0xFFF7;
};

TEST_F(FecTableMakeStepsTest, ANewUnitIsRestored) {
  agent_.makeTable(kNewUnit);
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 65527|
8 FecTableEntryLog::mountGlintConfig ||
2 FecTableEntryLog::mountGlintConfig | Mounted config for unitId: 65527 at LoamAdj.FecTable.unit65527.config|
8 FecTableSwTable::handleInitialized ||
2 FecTableInterface::makeSwTable | Restoring entries for table id: 03:01:0805|
8 FecTableSwTable::restoreEntries ||
)");
}

TEST_F(FecTableMakeStepsTest, ANewUnitIsCleared) {
  agent_.makeTable(kNewUnit, true);
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 65527|
8 FecTableEntryLog::mountGlintConfig ||
2 FecTableEntryLog::mountGlintConfig | Mounted config for unitId: 65527 at LoamAdj.FecTable.unit65527.config|
8 FecTableSwTable::handleInitialized ||
2 FecTableInterface::makeSwTable | Clearing entries for table id: 03:01:0805|
8 FecTableSwTable::clearTable ||
8 FecTableSwTable::delAllEntries | releaseResources: false, neededEntry:null |
8 FecTableEntryLog::tableDel | neededEntry:null, unitId: 65527|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 2, unit 65527, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
)");
}

TEST_F(FecTableMakeStepsTest, AUnitThatIsThereStaysAsItIs) {
  const auto before = table().swTableHelper();
  agent_.makeTable(kUnit);
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 7|
3 FecTableInterface::makeSwTable |swTable with unitId: 7 exists|
)");
  EXPECT_EQ(table().swTableHelper(), before);
}

TEST_F(FecTableMakeStepsTest, AUnitThatIsThereGetsAnotherHelperAndIsCleared) {
  commitOn("eth1", {kKey});
  const auto other = Zev::makeObject<StepHelper>(*recorder_);
  agent_.makeTable(kUnit, true, other);
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 7|
3 FecTableInterface::makeSwTable |swTable with unitId: 7 exists|
2 FecTableInterface::makeSwTable |Update software table helper|
unit 7 swTableHelper
2 FecTableInterface::makeSwTable | Clearing entries for table id: 03:01:0805|
8 FecTableSwTable::clearTable ||
8 FecTableSwTable::delAllEntries | releaseResources: false, neededEntry:null |
8 FecTableEntryLog::tableDel | neededEntry:null, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
)");
  EXPECT_EQ(table().swTableHelper(), other);
}

TEST_F(FecTableMakeStepsTest, ARequestGoesToTheHelperThatIsThereAtItsCommit) {
  write(kKey);
  agent_.makeTable(kUnit, false, LoamFec::fecTableSwTableHelperBaseFactory());
  EXPECT_THAT(generation(), ::testing::Not(HasSubstr("helper finalizeOnSuccess")));
}

// The end.

class FecTableEndStepsTest : public StepsFixture {};

TEST_F(FecTableEndStepsTest, EverythingEndsWithRequestsInEveryState) {
  commitOn("eth1", {kKey});
  table().entryWriteWithResponseHandler(key(kOther), FecHarness::entry(""), nullptr,
                                        recorder_->handlerThatTellsItsEnd("of the logged write"));
  agent_.run();
  table().entryWriteWithResponseHandler(key(kOther), FecHarness::entry("eth2"), nullptr,
                                        recorder_->handlerThatTellsItsEnd("of the waiting write"));
  table().entryRemoveWithResponseHandler(
      key(kThird), dependency(State::notResolved),
      recorder_->handlerThatTellsItsEnd("of the waiting remove"));
  agent_.run();
  helper_ = nullptr;
  recorder_->letGo();
  take();
  agent_.stop();
  EXPECT_EQ(take(), R"(
8 GroupResolver::resolverQueueDelIf ||
unit 7 entryUsageSm eth1 removed
handler of the logged write goes
8 GroupResolver::resolverQueueDelIf ||
handler of the waiting remove goes
handler of the waiting write goes
)");
}

}  // namespace
