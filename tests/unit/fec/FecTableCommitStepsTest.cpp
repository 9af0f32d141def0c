// SPDX-License-Identifier: Apache-2.0

// Every outward step of a commit, in order, compared as a whole. What a sequence begins with is the
// resolution check: the resolver commits what is resolved at once.

#include "StepsFixture.h"

namespace {

using namespace fec_test;

// The states of a dependency that make a commit fail.
constexpr Asic::EntryState kFailed[] = {Asic::EntryState::dependencyFailed,
                                        Asic::EntryState::commitFailed,
                                        Asic::EntryState::resourceFailed};

// Writes.

class FecTableWriteStepsTest : public StepsFixture {};

TEST_F(FecTableWriteStepsTest, ANewKeyWithWhatItsDestinationAndItsDependencyNeed) {
  destinationIs("eth1", 100, {tableVersion(0x801, 0x1'0000'0003), tableVersion(0x806, 7)});
  write(kKey, "eth1", dependency(State::done, 0x2'0000'0001));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 100/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
9 FecTableIntfIdToDestIdLinkage::getNeededEntrySet |neededVersion: 03:01:0801@4294967299|
9 FecTableIntfIdToDestIdLinkage::getNeededEntrySet |neededVersion: 03:01:0806@7|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
unit 7 entryUsageSm eth1 filed
client ackUpdate eth1 number 1, dependency null
usage of eth1: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x64/21/31 neededEntry: {03:01:0801@4294967299, 03:01:0806@8589934593} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs 03:01:0801@4294967299 03:01:0806@8589934593
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, EveryFieldOfAnEntryReachesItsRows) {
  FecTableDataModelEntry entry;
  entry.key = key(kOther);
  entry.flagA = 0x81;
  entry.clientDest = {0x1'0002, 0x8003, 0, 0xFFFF'0004};
  entry.opaqueA = 0xFFFF'0005;
  entry.opaqueB = 0x8000'0006;
  entry.flagB = 0x87;
  entry.resolvedDest = {1, 2, 0, 3};
  entry.intfId = Wirex::IntfId::fromName("eth1");
  resource("eth1")->contentsAre(State::done, {0xFFFF'0009, 0x800A, 0x8000'000B});
  table().entryWrite(key(kKey), entry, nullptr);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 4294901769/32778/2147483659; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
unit 7 entryUsageSm eth1 filed
client ackUpdate eth1 number 1, dependency null
usage of eth1: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:129 clientDest:0x10002/32771/4294901764 opaqueA:4294901765 opaqueB:2147483654 flagB:135 resolvedDest:0xffff0009/32778/2147483659 neededEntry: {} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface 'eth1', key 65537, flagA 129, client 65538/32771/4294901764, opaqueA 4294901765, opaqueB 2147483654, flagB 135, resolved 4294901769/32778/2147483659
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, flagA 129, client 65538/32771/4294901764, opaqueA 4294901765, opaqueB 2147483654, flagB 135, resolved 4294901769/32778/2147483659
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AnotherKeyOnAnInterfaceInUse) {
  commitOn("eth1", {kOther});
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 100/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000001, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x64/21/31 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AKeyWhoseInterfaceStays) {
  commitOn("eth1", {kKey});
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 100/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000001, row true
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x64/21/31 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AKeyThatLeavesAnInterfaceAsItsOnlyUser) {
  commitOn("eth1", {kKey});
  destinationIs("eth2", 200);
  write(kKey, "eth2");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth2, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 200/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000001, row true
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
client release eth1, dependency 65537 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth2, swKey: 65537|
unit 7 entryUsageSm eth2 filed
client ackUpdate eth2 number 1, dependency null
usage of eth2: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xc8/21/31 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth2', key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 200/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AKeyThatLeavesAnInterfaceThatOthersUseForOneInUse) {
  commitOn("eth1", {kKey, kOther});
  commitOn("eth2", {kThird});
  write(kKey, "eth2");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth2, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 100/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000003, row true
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth2, swKey: 65537|
usage of eth2: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x64/21/31 neededEntry: {} version: 5000000004 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000004, deleted false, interface 'eth2', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000004 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000004
store LoamAdj.LoamAdj.grouplog.table: row 4 written: 03:01:0805@5000000004 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 4
group log takes version 5000000004 of the log
handle 65537 v0.0, state 1, log version 5000000004
unit 7 entryHandleInLog 4 enters: 65537 v0.0, state 1, log version 5000000004
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AKeyThatNoLongerNeedsAnInterface) {
  commitOn("eth1", {kKey});
  write(kKey);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000001, row true
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
client release eth1, dependency 65537 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AKeyThatIsDeletedAndNotCleanedIsNewAgain) {
  commitOn("eth1", {kKey});
  remove(kKey);
  agent_.run();
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 100/21/31; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000002, row true
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: eth1, swKey: 65537|
unit 7 entryUsageSm eth1 filed
client ackUpdate eth1 number 1, dependency null
usage of eth1: 65537 comes
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0x64/21/31 neededEntry: {} version: 5000000003 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000003, deleted false, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000003 written: operation 0, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000003
store LoamAdj.LoamAdj.grouplog.table: row 3 written: 03:01:0805@5000000003 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 3
group log takes version 5000000003 of the log
handle 65537 v0.0, state 1, log version 5000000003
unit 7 entryHandleInLog 3 enters: 65537 v0.0, state 1, log version 5000000003
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AnOlderWriteOfAKeyLeavesTheNewerOnesRecords) {
  write(kKey);
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 1.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::resAccessorCheckResolved |key: 65537 is still unresolved!|
)");
}

// The low halves of their versions are the same.
TEST_F(FecTableWriteStepsTest, AnOlderWriteIsToldFromANewerOneByAllSixtyFourBits) {
  write(kKey);
  table().transientVersionForKeyIs(key(kKey), Asic::EntryVersion(0xFFFF'FFFF, 0));
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 4294967296.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::resAccessorCheckResolved |key: 65537 is still unresolved!|
)");
}

TEST_F(FecTableWriteStepsTest, AWriteThatALaterRemoveShadowsIsLoggedAndLeavesTheRemovesRecords) {
  write(kKey);
  remove(kKey, dependency(State::notResolved));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add false, remove true, version 1.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry not yet resolved|
)");
}

TEST_F(FecTableWriteStepsTest, AFailedResourceThatTheHelperRefuses) {
  stateIs("eth1", State::resourceFailed, 300);
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 5|
8 FecTableEntryWrapper::finalizeOnFailure | key: 65537 isDeleted: false|
helper finalizeOnFailure 65537, isDelete false, unit 7: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000000, row false
3 FecTableEntryWrapper::finalizeOnFailure | retVal: false|
1 FecTableSwTable::commitEntry |Failed to commit entry key: 65537|
handle 65537 v0.0, state 4, log version 0
handler of the write: 65537 v0.0, state 4, log version 0
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AFailedResourceThatTheHelperAccepts) {
  commitOn("eth1", {kKey});
  stateIs("eth1", State::dependencyFailed, 300);
  helper_->logsFailures = true;
  write(kKey, "eth1");
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 5|
8 FecTableEntryWrapper::finalizeOnFailure | key: 65537 isDeleted: false|
helper finalizeOnFailure 65537, isDelete false, unit 7: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000001, row true
3 FecTableEntryWrapper::finalizeOnFailure | retVal: true|
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000002 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted false, interface 'eth1', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, AFailedDependency) {
  for (const auto state : kFailed) {
    destinationIs("eth1", 100);
    write(kKey, "eth1", dependency(state));
    EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
1 FecTableSwTable::commitEntry |Failed dependent entry for key: 65537|
1 FecTableSwTable::commitEntry |Failed to commit entry key: 65537|
handle 65537 v0.0, state 4, log version 0
handler of the write: 65537 v0.0, state 4, log version 0
8 FecTableSwTable::maybeUpdateSuspend ||
)");
    startAt(kBase);
  }
}

TEST_F(FecTableWriteStepsTest, ADependencyThatIsLoggedOrDoneIsNoFailure) {
  write(kKey, "", dependency(State::hwWritePending, 9));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {03:01:0806@9} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs 03:01:0806@9
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableWriteStepsTest, ACommitTurnsSuspendOffWhenFewEnoughWait) {
  table().status()->suspendIs(true);
  write(kKey);
  table().status()->suspendIs(true);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: false, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::checkCommitToLog | Entry: 65537, isDeleted:false, resourceState: 3|
8 FecTableEntryWrapper::finalizeOnSuccess | key: 65537 isDeleted: false|
helper finalizeOnSuccess 65537, isDelete false: destination 65535/0/0; handle 65537 v0.0, state 0, log version 0; add true, remove false, version 0.0; log at 5000000000, row false
8 FecTableSwTable::getNeededEntrySet |key: 65537|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::addResKeyMapping |resKey: , swKey: 65537|
3 FecTableIntfIdToDestIdLinkage::addResKeyMapping |Null resKey: |
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryIs | logEntry: key:65537 flagA:0 clientDest:0xffff/0/0 opaqueA:5 opaqueB:0 flagB:0 resolvedDest:0xffff/0/0 neededEntry: {} version: 5000000001 unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000001, deleted false, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 0, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
handle 65537 v0.0, state 1, log version 5000000001
unit 7 entryHandleInLog 1 enters: 65537 v0.0, state 1, log version 5000000001
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
2 FecTableSwTable::maybeUpdateSuspend |Turning off suspend|
status suspend false
)");
}

// Removes.

class FecTableRemoveStepsTest : public StepsFixture {};

TEST_F(FecTableRemoveStepsTest, TheOnlyUserOfAnInterface) {
  commitOn("eth1", {kKey});
  remove(kKey);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
client release eth1, dependency 65537 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
unit 7 transientRemoveEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {} unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 1, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveStepsTest, OneOfTwoUsersWithADependency) {
  destinationIs("eth1", 100, {tableVersion(0x801, 3)});
  commitOn("eth1", {kKey, kOther});
  remove(kKey, dependency(State::done, 0x2'0000'0001));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
unit 7 transientRemoveEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {03:01:0806@8589934593} unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000003, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000003 written: operation 1, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000003
store LoamAdj.LoamAdj.grouplog.table: row 3 written: 03:01:0805@5000000003 needs 03:01:0806@8589934593
store LoamAdj.LoamAdj.grouplog.table: scratchpad 3
group log takes version 5000000003 of the log
handle 65537 v0.0, state 1, log version 5000000003
unit 7 entryHandleInLog 3 enters: 65537 v0.0, state 1, log version 5000000003
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveStepsTest, AKeyWithoutRow) {
  commitOn("eth1", {kOther});
  remove(kKey);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
unit 7 transientRemoveEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {} unitId: 7|
3 FecTableEntryLog::entryDel | key: 65537 entry does not exist. So ignoring delete|
handle 65537 v0.0, state 1, log version 0
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 0
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveStepsTest, AKeyWhoseRowIsDeletedAlreadyIsMarkedAgain) {
  commitOn("eth1", {kKey});
  remove(kKey);
  agent_.run();
  remove(kKey);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
unit 7 transientRemoveEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {} unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000003, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000003 written: operation 1, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000003
store LoamAdj.LoamAdj.grouplog.table: row 3 written: 03:01:0805@5000000003 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 3
group log takes version 5000000003 of the log
handle 65537 v0.0, state 1, log version 5000000003
unit 7 entryHandleInLog 3 enters: 65537 v0.0, state 1, log version 5000000003
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveStepsTest, AnOlderRemoveLeavesTheRecordsOfANewerOne) {
  commitOn("", {kKey});
  remove(kKey);
  remove(kKey, dependency(State::notResolved));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: , swKey: 65537|
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {} unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted true, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 1, unit 7, key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry not yet resolved|
)");
}

TEST_F(FecTableRemoveStepsTest, ARemoveIsLoggedAlthoughItsResourceHasFailed) {
  commitOn("eth1", {kKey});
  stateIs("eth1", State::resourceFailed);
  remove(kKey);
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 65537|
8 FecTableEntryLog::entryHas | key: 65537 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 65537|
8 FecTableEntryLog::entry | key: 65537 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 65537 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth1, swKey: 65537|
usage of eth1: 65537 goes
client release eth1, dependency 65537 v0.0, state 0, log version 0
unit 7 entryUsageSm eth1 removed
unit 7 transientRemoveEntry 65537: add none, remove none, version 0.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientVersionForKey 65537: add none, remove none, version none; alive: 1 wrappers, 1 resolver entries
8 FecTableEntryLog::entryDel | key:65537 neededEntry: {} unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000002, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 1, unit 7, key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
handle 65537 v0.0, state 1, log version 5000000002
unit 7 entryHandleInLog 2 enters: 65537 v0.0, state 1, log version 5000000002
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveStepsTest, AFailedDependency) {
  for (const auto state : kFailed) {
    remove(kKey, dependency(state));
    EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 65537|
8 FecTableSwTable::commitEntry |Entry: 65537, isEntryDeleted: true, isTableDeleted: false|
1 FecTableSwTable::commitEntry |Failed dependent entry for key: 65537|
1 FecTableSwTable::commitEntry |Failed to commit entry key: 65537|
handle 65537 v0.0, state 4, log version 0
handler of the remove: 65537 v0.0, state 4, log version 0
8 FecTableSwTable::maybeUpdateSuspend ||
)");
    startAt(kBase);
  }
}

// Remove-alls.

class FecTableRemoveAllStepsTest : public StepsFixture {};

TEST_F(FecTableRemoveAllStepsTest, EntriesOnTwoInterfacesAndOnNone) {
  commitOn("eth1", {kKey, kOther});
  commitOn("", {kThird});
  commitOn("eth2", {0xFFFF'FFFF});
  removeAll();
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 0|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{} |
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
8 FecTableSwTable::entryWrapperFromConfig |key: 4294967295, refreshRsrcPtrs: false|
8 FecTableSwTable::entryFromConfig |key: 4294967295|
8 FecTableEntryLog::entry | key: 4294967295 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294967295 unitId:7|
8 FecTableSwTable::setRsrcPtrs |key: 4294967295, refresh: false|
8 FecTableIntfIdToDestIdLinkage::updateLocalUsage |key: 4294967295|
8 FecTableEntryLog::entryHas | key: 4294967295 unitId:7|
8 FecTableSwTable::entryFromConfig |key: 4294967295|
8 FecTableEntryLog::entry | key: 4294967295 unitId:7|
8 FecTableEntryLog::entryRsrcKeys | key: 4294967295 unitId:7|
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: eth2, swKey: 4294967295|
usage of eth2: 4294967295 goes
client release eth2, dependency 4294967295 v0.0, state 0, log version 0
unit 7 entryUsageSm eth2 removed
8 FecTableEntryLog::tableDel | neededEntry:{}, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000005, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000005, deleted true, interface 'eth1', key 4294901761, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 2147483649 written: version 5000000005, deleted true, interface '', key 2147483649, opaqueA 5
store LoamAdj.FecTable.unit7.config.table: row 4294967295 written: version 5000000005, deleted true, interface 'eth2', key 4294967295, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000005 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000005
store LoamAdj.LoamAdj.grouplog.table: row 5 written: 03:01:0805@5000000005 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 5
group log takes version 5000000005 of the log
unit 7 transientRemoveAllVersion from 0 to 18446744073709551615; alive: 1 wrappers, 1 resolver entries
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveAllStepsTest, RowsThatAreDeletedAlreadyAreMarkedAgain) {
  commitOn("eth1", {kKey, kOther});
  remove(kKey);
  agent_.run();
  removeAll(dependency(State::done, 0x2'0000'0001));
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
3 FecTableSwTable::isResolverEntryResolved |key: 0 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 0|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{03:01:0806@8589934593} |
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
8 FecTableEntryLog::tableDel | neededEntry:{03:01:0806@8589934593}, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000004, deleted true, interface 'eth1', key 65537, opaqueA 5, resolved 100/21/31
store LoamAdj.FecTable.unit7.config.table: row 4294901761 written: version 5000000004, deleted true, interface 'eth1', key 4294901761, opaqueA 5, resolved 100/21/31
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000004 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000004
store LoamAdj.LoamAdj.grouplog.table: row 4 written: 03:01:0805@5000000004 needs 03:01:0806@8589934593
store LoamAdj.LoamAdj.grouplog.table: scratchpad 4
group log takes version 5000000004 of the log
unit 7 transientRemoveAllVersion from 0 to 18446744073709551615; alive: 1 wrappers, 1 resolver entries
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveAllStepsTest, AnEmptyTable) {
  removeAll();
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 0|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{} |
8 FecTableEntryLog::tableDel | neededEntry:{}, unitId: 7|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
unit 7 transientRemoveAllVersion from 0 to 18446744073709551615; alive: 1 wrappers, 1 resolver entries
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveAllStepsTest, TwoThatWait) {
  removeAll();
  removeAll();
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 1|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{} |
8 FecTableEntryLog::tableDel | neededEntry:{}, unitId: 7|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000001 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000001
store LoamAdj.LoamAdj.grouplog.table: row 1 written: 03:01:0805@5000000001 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 1
group log takes version 5000000001 of the log
unit 7 transientRemoveAllVersion from 1 to 0; alive: 2 wrappers, 2 resolver entries
status pendingHwWrites true
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 0|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{} |
8 FecTableEntryLog::tableDel | neededEntry:{}, unitId: 7|
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000002 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000002
store LoamAdj.LoamAdj.grouplog.table: row 2 written: 03:01:0805@5000000002 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 2
group log takes version 5000000002 of the log
unit 7 transientRemoveAllVersion from 0 to 18446744073709551615; alive: 1 wrappers, 1 resolver entries
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveAllStepsTest, OneOfTwoUnits) {
  agent_.makeTable(0xFFF8);
  agent_.table(0xFFF8).entryWrite(key(kKey), FecHarness::entry(""), nullptr);
  commitOn("", {kKey});
  removeAll();
  EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
8 FecTableSwTable::commitEntry |Committing table delete for version: 0|
8 FecTableSwTable::getNeededEntrySet |key: 0|
8 FecTableSwTable::delAllEntries | releaseResources: true, neededEntry:{} |
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
8 FecTableIntfIdToDestIdLinkage::deleteResKeyMapping |resKey: , swKey: 65537|
8 FecTableEntryLog::tableDel | neededEntry:{}, unitId: 7|
store LoamAdj.FecTable.unit7.config.table: row 65537 written: version 5000000003, deleted true, interface '', key 65537, opaqueA 5
store LoamAdj.LoamAdj.FecTable.log.table: row 5000000003 written: operation 2, unit 7, key 0
store LoamAdj.LoamAdj.FecTable.log.table: scratchpad 5000000003
store LoamAdj.LoamAdj.grouplog.table: row 3 written: 03:01:0805@5000000003 needs nothing
store LoamAdj.LoamAdj.grouplog.table: scratchpad 3
group log takes version 5000000003 of the log
unit 7 transientRemoveAllVersion from 0 to 18446744073709551615; alive: 1 wrappers, 1 resolver entries
status hwWriteAsked
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRemoveAllStepsTest, AFailedDependency) {
  commitOn("eth1", {kKey});
  for (const auto state : kFailed) {
    removeAll(dependency(state));
    EXPECT_EQ(generation(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
3 FecTableSwTable::isResolverEntryResolved |key: 0 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
8 FecTableResolverEntry::commitEntry |key: 0|
8 FecTableSwTable::commitEntry |Entry: 0, isEntryDeleted: false, isTableDeleted: true|
1 FecTableSwTable::commitEntry |Failed dependent entry for remove all|
1 FecTableSwTable::commitEntry |Failed to commit entry remove all operation|
handle 0 v0.0, state 4, log version 0
handler of the remove-all: 0 v0.0, state 4, log version 0
8 FecTableSwTable::maybeUpdateSuspend ||
)");
    table().transientRemoveAllVersionIs(MajorVersion());
  }
}

}  // namespace
