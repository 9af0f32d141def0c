// SPDX-License-Identifier: Apache-2.0

// Every outward step of a report, of a changed resource, and of what works from shared memory, in
// order, compared as a whole.

#include "StepsFixture.h"

namespace {

using namespace fec_test;

// Reports. The log's versions cross 32 bits: 4294967295, 4294967296, 4294967297.

class FecTableReportStepsTest : public StepsFixture {
 protected:
  static constexpr std::uint64_t kBefore = 0xFFFF'FFFE;

  FecTableReportStepsTest() { startAt(kBefore); }

  std::string reportOf(std::uint64_t version) {
    agent_.run();
    take();
    agent_.report(version);
    return take();
  }
};

TEST_F(FecTableReportStepsTest, AReportOlderThanTheFrontHandle) {
  write(kKey);
  write(kOther);
  agent_.run();
  agent_.report(kBefore + 1);
  EXPECT_EQ(reportOf(kBefore + 1), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967295|
8 FecTableEntryLog::cleanupEntryLog | version 4294967295|
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
group log applied 4294967295
)");
}

TEST_F(FecTableReportStepsTest, TheFirstReportOfAProcessUpToTheFirstOfTwoHandles) {
  write(kKey);
  write(kOther);
  EXPECT_EQ(reportOf(kBefore + 1), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967295|
8 FecTableEntryLog::cleanupEntryLog | version 4294967295|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 1 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967295, key: 65537|
handle 65537 v0.0, state 3, log version 4294967295
handler of the write: 65537 v0.0, state 3, log version 4294967295
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 1 removed
group log applied 4294967295
)");
}

TEST_F(FecTableReportStepsTest, AReportUpToTheLastOfTwoHandles) {
  write(kKey);
  agent_.run();
  agent_.report(kBefore);
  remove(kOther);
  write(kOther);
  EXPECT_EQ(reportOf(kBefore + 2), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 1 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 65537|
handle 65537 v0.0, state 3, log version 4294967295
handler of the write: 65537 v0.0, state 3, log version 4294967295
unit 7 entryHandleInLog 2 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 4294901761|
handle 4294901761 v0.0, state 3, log version 0
handler of the remove: 4294901761 v0.0, state 3, log version 0
unit 7 entryHandleInLog 3 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 4294901761|
handle 4294901761 v1.0, state 3, log version 4294967296
handler of the write: 4294901761 v1.0, state 3, log version 4294967296
status pendingHwWrites false
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 1 removed
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
group log applied 4294967296
)");
}

TEST_F(FecTableReportStepsTest, AReportBeyondTheLogIsHeardByNobody) {
  write(kKey);
  EXPECT_EQ(reportOf(kBefore + 5), "\n");
  EXPECT_EQ(agent_.group()->refusedReports(), 1U);
}

TEST_F(FecTableReportStepsTest, ATableThatHearsOfAVersionBeyondTheLog) {
  write(kKey);
  agent_.run();
  take();
  table().tableStatusVersion(LogVersion(kBefore + 5));
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967299|
8 FecTableEntryLog::cleanupEntryLog | version 4294967299|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 1 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967299, key: 65537|
handle 65537 v0.0, state 3, log version 4294967295
handler of the write: 65537 v0.0, state 3, log version 4294967295
)");
}

TEST_F(FecTableReportStepsTest, AReportThatIsTheLogsVersionInItsLowHalfAlone) {
  startAt(1ULL << 32);
  write(kKey);
  EXPECT_EQ(reportOf(1), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 1|
8 FecTableEntryLog::cleanupEntryLog | version 1|
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
group log applied 1
)");
  EXPECT_TRUE(table().status()->pendingHwWrites());
}

TEST_F(FecTableReportStepsTest, AReportOfTheLogsVersionWithNothingQueued) {
  write(kKey);
  agent_.run();
  agent_.reportAll();
  table().status()->pendingHwWritesIs(true);
  EXPECT_EQ(reportOf(kBefore + 1), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967295|
8 FecTableEntryLog::cleanupEntryLog | version 4294967295|
8 GroupResolver::updateGenId ||
status pendingHwWrites false
store LoamAdj.LoamAdj.applied.table: row 50399237 written
group log applied 4294967295
)");
}

TEST_F(FecTableReportStepsTest, AReportBelowTheLastMovesTheCursorBack) {
  write(kKey);
  write(kOther);
  agent_.run();
  agent_.report(kBefore + 2);
  EXPECT_EQ(reportOf(kBefore + 1), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967295|
8 FecTableEntryLog::cleanupEntryLog | version 4294967295|
8 GroupResolver::updateGenId ||
)");
  EXPECT_EQ(log().prevTableVersion(), LogVersion(kBefore + 1));
}

TEST_F(FecTableReportStepsTest, ADeletionThatIsCleanedUp) {
  commitOn("", {kKey});
  agent_.reportAll();
  remove(kKey);
  EXPECT_EQ(reportOf(kBefore + 2), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
store LoamAdj.FecTable.unit7.config.table: row 65537 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 2 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 65537|
handle 65537 v0.0, state 3, log version 4294967296
handler of the remove: 65537 v0.0, state 3, log version 4294967296
status pendingHwWrites false
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
group log applied 4294967296
)");
}

TEST_F(FecTableReportStepsTest, ADeletionWhoseKeyWasWrittenAgain) {
  commitOn("", {kKey});
  agent_.reportAll();
  remove(kKey);
  agent_.run();
  write(kKey);
  EXPECT_EQ(reportOf(kBefore + 2), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 2 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 65537|
handle 65537 v0.0, state 3, log version 4294967296
handler of the remove: 65537 v0.0, state 3, log version 4294967296
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
group log applied 4294967296
)");
}

TEST_F(FecTableReportStepsTest, ATableDeletionThatIsCleanedUpAndAKeyThatWasWrittenAgain) {
  commitOn("", {kKey, kOther});
  agent_.reportAll();
  removeAll();
  agent_.run();
  write(kOther);
  EXPECT_EQ(reportOf(kBefore + 3), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967297|
8 FecTableEntryLog::cleanupEntryLog | version 4294967297|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967297 removed
3 FecTableEntryLog::cleanupEntryLog | deleteing all entries for unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 removed
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 3 removed
group log applied 4294967297
)");
}

TEST_F(FecTableReportStepsTest, TheFirstReportOfAProcessCleansUpWhatEarlierOnesLeft) {
  commitOn("", {kKey, kOther, kThird});
  remove(kKey);
  agent_.run();
  removeAll();
  agent_.run();
  startAt(log().tableVersion().value());
  EXPECT_EQ(reportOf(kBefore + 4), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967298|
8 FecTableEntryLog::cleanupEntryLog | version 4294967298|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967297 removed
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967298 removed
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 1 removed
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
store LoamAdj.LoamAdj.grouplog.table: row 3 removed
store LoamAdj.LoamAdj.grouplog.table: row 4 removed
group log applied 4294967298
)");
  EXPECT_EQ(reportOf(kBefore + 5), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967299|
8 FecTableEntryLog::cleanupEntryLog | version 4294967299|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967299 removed
3 FecTableEntryLog::cleanupEntryLog | deleteing all entries for unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 removed
store LoamAdj.FecTable.unit7.config.table: row 4294901761 removed
store LoamAdj.FecTable.unit7.config.table: row 2147483649 removed
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 5 removed
group log applied 4294967299
)");
}

TEST_F(FecTableReportStepsTest, ADeletionOfAUnitThatThisProcessHasNot) {
  agent_.makeTable(0xFFF7);
  agent_.table(0xFFF7).entryWrite(key(kKey), FecHarness::entry(""), nullptr);
  agent_.run();
  agent_.table(0xFFF7).entryRemove(key(kKey), nullptr);
  agent_.run();
  startAt(log().tableVersion().value());
  EXPECT_EQ(reportOf(kBefore + 2), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
3 FecTableEntryLog::cleanupEntryLog | configGlint not found for unitId: 65527|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
3 FecTableEntryLog::cleanupEntryLog | configGlint not found for unitId: 65527|
8 GroupResolver::updateGenId ||
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 1 removed
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
group log applied 4294967296
)");
}

TEST_F(FecTableReportStepsTest, AReportThatTwoUnitsHear) {
  agent_.makeTable(0xFFF7);
  recorder_->watch(agent_.table(0xFFF7));
  agent_.table(0xFFF7).entryWriteWithResponseHandler(key(kKey), FecHarness::entry(""), nullptr,
                                                     recorder_->handler("of the other unit"));
  write(kOther);
  EXPECT_EQ(reportOf(kBefore + 2), R"(
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967295 removed
store LoamAdj.LoamAdj.FecTable.log.table: row 4294967296 removed
8 GroupResolver::updateGenId ||
unit 7 entryHandleInLog 1 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 4294901761|
handle 4294901761 v0.0, state 3, log version 4294967296
handler of the write: 4294901761 v0.0, state 3, log version 4294967296
status pendingHwWrites false
8 FecTableSwTable::tableStatusVersion |tableVersion: 4294967296|
8 FecTableEntryLog::cleanupEntryLog | version 4294967296|
8 GroupResolver::updateGenId ||
unit 65527 entryHandleInLog 1 leaves
3 FecTableSwTable::tableStatusVersion |Processing version: 4294967296, key: 65537|
handle 65537 v0.0, state 3, log version 4294967295
handler of the other unit: 65537 v0.0, state 3, log version 4294967295
store LoamAdj.LoamAdj.applied.table: row 50399237 written
store LoamAdj.LoamAdj.grouplog.table: row 1 removed
store LoamAdj.LoamAdj.grouplog.table: row 2 removed
group log applied 4294967296
)");
}

// Changed resources.

class FecTableChangeStepsTest : public StepsFixture {
 protected:
  // The resource has new contents and says so.
  std::string changeTo(State state, std::uint32_t destination,
                       const std::vector<Asic::TableVersion>& needed = {}) {
    stateIs("eth1", state, destination, needed);
    take();
    resource("eth1")->publish();
    return take();
  }
};

TEST_F(FecTableChangeStepsTest, ANewDestinationOfAnInterfaceWithThreeUsers) {
  commitOn("eth1", {kKey, kOther, kThird});
  EXPECT_EQ(changeTo(State::done, 200, {tableVersion(0x801, 0x1'0000'0003)}), R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 517|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 65537|
9 FecTableIntfIdToDestIdLinkage::getNeededEntrySet |neededVersion: 03:01:0801@4294967299|
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {03:01:0801@4294967299} version: 5000000004 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000004, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000004 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000004
store LoamAdj.LoamAdj.grouplog.table: row 4 written: 03:01:0805@5000000004 needs 03:01:0801@4294967299
store LoamAdj.LoamAdj.grouplog.table: scratchpad 4
group log takes version 5000000004 of the log
3 FecTableSwTable::updateEntry | key: 65537, neededEntry: {03:01:0801@4294967299}, entryLogVersion: 5000000004 |
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 4294901761 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 4294901761, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294901761, refresh: false|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 4294901761|
9 FecTableIntfIdToDestIdLinkage::getNeededEntrySet |neededVersion: 03:01:0801@4294967299|
8 FecTableEntryLog::entryIs | logEntry: key:4294901761 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {03:01:0801@4294967299} version: 5000000005 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000005, deleted false, interface 'eth1', key 4294901761, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000005 written: operation 0, unit 7, key 4294901761, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000005
store LoamAdj.LoamAdj.grouplog.table: row 5 written: 03:01:0805@5000000005 needs 03:01:0801@4294967299
store LoamAdj.LoamAdj.grouplog.table: scratchpad 5
group log takes version 5000000005 of the log
3 FecTableSwTable::updateEntry | key: 4294901761, neededEntry: {03:01:0801@4294967299}, entryLogVersion: 5000000005 |
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 2147483649 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 2147483649, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 2147483649|
8 FecTableEntryLog::entry | key: 2147483649 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 2147483649 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 2147483649, refresh: false|
8 FecTableEntryLog::entry | key: 2147483649 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 2147483649|
9 FecTableIntfIdToDestIdLinkage::getNeededEntrySet |neededVersion: 03:01:0801@4294967299|
8 FecTableEntryLog::entryIs | logEntry: key:2147483649 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {03:01:0801@4294967299} version: 5000000006 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 2147483649 written: version 5000000006, deleted false, interface 'eth1', key 2147483649, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000006 written: operation 0, unit 7, key 2147483649, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000006
store LoamAdj.LoamAdj.grouplog.table: row 6 written: 03:01:0805@5000000006 needs 03:01:0801@4294967299
store LoamAdj.LoamAdj.grouplog.table: scratchpad 6
group log takes version 5000000006 of the log
3 FecTableSwTable::updateEntry | key: 2147483649, neededEntry: {03:01:0801@4294967299}, entryLogVersion: 5000000006 |
client ackUpdate eth1 number 2, dependency 2147483649 v0.0, state 1, log version 5000000006
)");
}

TEST_F(FecTableChangeStepsTest, ADestinationThatHasFailed) {
  commitOn("eth1", {kKey});
  EXPECT_EQ(changeTo(State::resourceFailed, 300), R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 517|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x12c/21/31 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 300/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 300/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
3 FecTableSwTable::updateEntry | key: 65537, neededEntry: {}, entryLogVersion: 5000000002 |
client ackUpdate eth1 number 2, dependency 65537 v0.0, state 1, log version 5000000002
)");
}

TEST_F(FecTableChangeStepsTest, ADestinationThatIsNotResolvedAnyMore) {
  commitOn("eth1", {kKey});
  EXPECT_EQ(changeTo(State::notResolved, 400), R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 517|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
3 FecTableSwTable::updateEntry |key: 65537 is still unresolved!|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
3 FecTableSwTable::updateEntry | key: 65537, commitToLog: false, no change in logEntry or don't commit to log|
client ackUpdate eth1 number 2, dependency 65537 v0.0, state 1, log version 5000000001
)");
}

TEST_F(FecTableChangeStepsTest, AChangeThatIsNone) {
  commitOn("eth1", {kKey});
  EXPECT_EQ(changeTo(State::done, 100), R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 517|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
3 FecTableSwTable::updateEntry | key: 65537, commitToLog: true, no change in logEntry or don't commit to log|
client ackUpdate eth1 number 2, dependency 65537 v0.0, state 1, log version 5000000001
)");
}

// The linkage goes on until its change is acknowledged, and ends then.
TEST_F(FecTableChangeStepsTest, AnObserverMayReplaceTheLinkageWhoseChangeIsHandled) {
  commitOn("eth1", {kKey});
  Pell::Subscriber replace([this](auto&&...) {
    if (table().intfIdToDestIdLinkage()) {
      table().intfIdToDestIdLinkageIs(nullptr);
    }
  });
  agent_.group()->groupLog()->publisher().subscriberAdd(replace);
  const std::string steps = changeTo(State::done, 200);
  agent_.group()->groupLog()->publisher().subscriberRemove(replace);
  recorder_->letGo();
  EXPECT_EQ(steps, R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 517|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
unit 7 intfIdToDestIdLinkage
3 FecTableSwTable::updateEntry | key: 65537, neededEntry: {}, entryLogVersion: 5000000002 |
client ackUpdate eth1 number 2, dependency 65537 v0.0, state 1, log version 5000000002
unit 7 entryUsageSm eth1 removed
)");
}

TEST_F(FecTableChangeStepsTest, APublicationOfAnotherAttribute) {
  commitOn("eth1", {kKey});
  recorder_->watch(*resource("eth1"));
  resource("eth1")->publish(516);
  resource("eth1")->publish(518);
  EXPECT_EQ(take(), R"(
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 516|
resource eth1 publishes 516
8 LocalUsageUpdateSm::resPtrDispatch |resKey: eth1, attributeId: 518|
resource eth1 publishes 518
)");
}

TEST_F(FecTableChangeStepsTest, AnUpdateOfAKeyThatIsNotCommitted) {
  write(kKey);
  take();
  EXPECT_EQ(table().updateEntry(key(kKey)), nullptr);
  EXPECT_EQ(take(), R"(
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
3 FecTableSwTable::updateEntry | key: 65537 entry does not exist |
)");
}

TEST_F(FecTableChangeStepsTest, AnUpdateOfAKeyThatIsDeletedAndNotCleaned) {
  commitOn("eth1", {kKey});
  remove(kKey);
  agent_.run();
  take();
  EXPECT_EQ(table().updateEntry(key(kKey)), nullptr);
  EXPECT_EQ(take(), R"(
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
3 FecTableSwTable::updateEntry | key: 65537 entry does not exist |
)");
}

TEST_F(FecTableChangeStepsTest, AnUpdateAnswersWithAHandleOfItsOwn) {
  commitOn("eth1", {kKey});
  commitOn("", {kOther});
  const auto unchanged = table().updateEntry(key(kKey));
  EXPECT_EQ(StepRecorder::describe(unchanged.get()), "65537 v0.0, state 1, log version 5000000002");
  destinationIs("eth1", 200);
  const auto changed = table().updateEntry(key(kKey));
  EXPECT_EQ(StepRecorder::describe(changed.get()), "65537 v0.0, state 1, log version 5000000003");
  EXPECT_EQ(table().entryHandlesInLog(), 2U) << "it does not wait in the log";
}

// From shared memory.

class FecTableStateStepsTest : public StepsFixture {};

TEST_F(FecTableStateStepsTest, AClearThatKeepsWhatIsUsed) {
  commitOn("eth1", {kKey});
  table().clearTable(false);
  EXPECT_EQ(take(), R"(
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
}

TEST_F(FecTableStateStepsTest, AClearThatReleasesWhatIsUsed) {
  commitOn("eth1", {kKey, kOther});
  commitOn("", {kThird});
  table().clearTable(true);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::clearTable ||
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:null |
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
8 FecTableSwTable::entryWrapperFromConfig |key: 4294901761, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294901761, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 4294901761|
8 FecTableEntryLog::entryHas | key: 4294901761 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 4294901761|
usage of eth1: 4294901761 goes
client release eth1, dependency 4294901761 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
8 FecTableSwTable::entryWrapperFromConfig |key: 2147483649, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 2147483649|
8 FecTableEntryLog::entry | key: 2147483649 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 2147483649 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 2147483649, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 2147483649|
8 FecTableEntryLog::entryHas | key: 2147483649 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 2147483649|
8 FecTableEntryLog::entry | key: 2147483649 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 2147483649 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: , swKey: 2147483649|
8 FecTableEntryLog::tableDel | neededEntry:null, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000004, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000004, deleted true, interface 'eth1', key 4294901761, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 2147483649 written: version 5000000004, deleted true, interface '', key 2147483649, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000004 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000004
store LoamAdj.LoamAdj.grouplog.table: row 4 written: 03:01:0805@5000000004 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 4
group log takes version 5000000004 of the log
)");
}

TEST_F(FecTableStateStepsTest, AClearWithADeletedRow) {
  commitOn("eth1", {kKey, kOther});
  remove(kKey);
  agent_.run();
  take();
  table().clearTable(true);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::clearTable ||
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:null |
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 0|
8 FecTableEntryLog::entryHas | key: 0 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 4294901761, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294901761, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 4294901761|
8 FecTableEntryLog::entryHas | key: 4294901761 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 4294901761|
usage of eth1: 4294901761 goes
client release eth1, dependency 4294901761 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
8 FecTableEntryLog::tableDel | neededEntry:null, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000004, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000004, deleted true, interface 'eth1', key 4294901761, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000004 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000004
store LoamAdj.LoamAdj.grouplog.table: row 4 written: 03:01:0805@5000000004 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 4
group log takes version 5000000004 of the log
)");
}

TEST_F(FecTableStateStepsTest, AClearOfAnEmptyTable) {
  table().clearTable(true);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::clearTable ||
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:null |
8 FecTableEntryLog::tableDel | neededEntry:null, unitId: 7|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
)");
}

TEST_F(FecTableStateStepsTest, ARestoreOfTwoUsersAndADeletedRow) {
  commitOn("eth1", {kKey, kOther, kThird});
  commitOn("", {0xFFFF'FFFF});
  remove(kThird);
  agent_.run();
  restart();
  agent_.onClient = [this](RecordingResourceClient& made) {
    recorder_->watch(made);
    made.handle("eth1")->contentsAre(State::done, {200, 21, 31});
  };
  take();
  makeTable();
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 7|
8 FecTableEntryLog::mountGlintConfig ||
2 FecTableEntryLog::mountGlintConfig | Mounted config for unitId: 7 at LoamAdj.FecTable.unit7.config|
8 FecTableSwTable::handleInitialized ||
2 FecTableInterface::makeSwTable | Restoring entries for table id: 03:01:0805|
8 FecTableSwTable::restoreEntries ||
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: true|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
8 FecTableSwTable::entryWrapperFromConfig |key: 4294901761, refreshRsrcPtrs: true|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294901761, refresh: true|
client request eth1, dependency null
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 4294901761|
8 FecTableSwTable::entryWrapperFromConfig |key: 4294967295, refreshRsrcPtrs: true|
8 FecTableSwTable::entryFromConfig |key: 4294967295|
8 FecTableEntryLog::entry | key: 4294967295 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294967295 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294967295, refresh: true|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {} version: 5000000006 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000006, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000006 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000006
store LoamAdj.LoamAdj.grouplog.table: row 6 written: 03:01:0805@5000000006 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 6
3 FecTableSwTable::updateEntry | key: 65537, neededEntry: {}, entryLogVersion: 5000000006 |
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 4294901761 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 4294901761, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 4294901761|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294901761 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294901761, refresh: false|
8 FecTableEntryLog::entry | key: 4294901761 unitId:7|
8 FecTableSwTable::getNeededEntrySet |key: 4294901761|
8 FecTableEntryLog::entryIs | logEntry: key:4294901761 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {} version: 5000000007 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000007, deleted false, interface 'eth1', key 4294901761, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000007 written: operation 0, unit 7, key 4294901761, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000007
store LoamAdj.LoamAdj.grouplog.table: row 7 written: 03:01:0805@5000000007 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 7
3 FecTableSwTable::updateEntry | key: 4294901761, neededEntry: {}, entryLogVersion: 5000000007 |
client ackUpdate eth1 number 1, dependency 4294901761 v0.0, state 1, log version 5000000007
)");
  EXPECT_EQ(table().intfIdToDestIdLinkage()->entryUsageSms(), 1U);
}

TEST_F(FecTableStateStepsTest, ARestoreWhoseDestinationIsNotResolvedYet) {
  commitOn("eth1", {kKey});
  restart();
  take();
  makeTable();
  EXPECT_EQ(take(), R"(
8 FecTableInterface::makeSwTable |unitId: 7|
8 FecTableEntryLog::mountGlintConfig ||
2 FecTableEntryLog::mountGlintConfig | Mounted config for unitId: 7 at LoamAdj.FecTable.unit7.config|
8 FecTableSwTable::handleInitialized ||
2 FecTableInterface::makeSwTable | Restoring entries for table id: 03:01:0805|
8 FecTableSwTable::restoreEntries ||
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: true|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
8 FecTableIntfIdToDestIdLinkage::handleResourceChange ||
3 FecTableIntfIdToDestIdLinkage::handleResourceChange |Updating sw table entry for key: |
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryWrapperFromConfig |key: 65537, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: false|
3 FecTableSwTable::updateEntry |key: 65537 is still unresolved!|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
3 FecTableSwTable::updateEntry | key: 65537, commitToLog: false, no change in logEntry or don't commit to log|
client ackUpdate eth1 number 0, dependency 65537 v0.0, state 1, log version 5000000001
)");
}

}  // namespace
