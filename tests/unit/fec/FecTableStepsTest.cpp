// SPDX-License-Identifier: Apache-2.0

// Every outward step of a request and of its resolution, in order, compared as a whole.

#include "StepsFixture.h"

namespace {

using namespace fec_test;

class FecTableRequestStepsTest : public StepsFixture {};

TEST_F(FecTableRequestStepsTest, TheFirstWriteOfAKey) {
  table().entryWrite(key(kKey), FecHarness::entry("eth1"), nullptr);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryWrite | key: 65537|
8 FecTableSwTable::entryWriteWithResponseHandler | key: 65537|
8 FecTableSwTable::entryWriteGeneric |key: 65537|
8 FecTableSwTable::entryWriteGeneric | Key: 65537 not found in entry version collection|
unit 7 transientVersionForKey 65537: add none, remove none, version 0.0; alive: 0 wrappers, 0 resolver entries
unit 7 transientAddEntry 65537: add v0.0, remove none, version 0.0; alive: 1 wrappers, 0 resolver entries
client request eth1, dependency null
8 GroupResolver::resolverQueueEnq |flags 0|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryWriteGeneric |Done processing write for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, AWriteWithHandlerWhileOneOfItsKeyIsPending) {
  write(kKey, "eth1");
  take();
  write(kKey, "eth2");
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryWriteWithResponseHandler | key: 65537|
8 FecTableSwTable::entryWriteGeneric |key: 65537|
unit 7 transientVersionForKey 65537: add v0.0, remove none, version 1.0; alive: 1 wrappers, 1 resolver entries
unit 7 transientAddEntry 65537: add v1.0, remove none, version 1.0; alive: 2 wrappers, 1 resolver entries
client request eth2, dependency null
8 GroupResolver::resolverQueueEnq |flags 0|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryWriteGeneric |Done processing write for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, AVersionCountsInItsSixtyFourBitsAndKeepsItsLastSixteen) {
  table().transientVersionForKeyIs(key(kKey), Asic::EntryVersion(0xFFFF'FFFF, 9));
  take();
  write(kKey);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryWriteWithResponseHandler | key: 65537|
8 FecTableSwTable::entryWriteGeneric |key: 65537|
unit 7 transientVersionForKey 65537: add none, remove none, version 4294967296.9; alive: 0 wrappers, 0 resolver entries
unit 7 transientAddEntry 65537: add v4294967296.9, remove none, version 4294967296.9; alive: 1 wrappers, 0 resolver entries
8 GroupResolver::resolverQueueEnq |flags 0|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryWriteGeneric |Done processing write for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, AWriteAfterARemoveThatIsPending) {
  remove(kKey);
  write(kOther);
  take();
  write(kKey);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryWriteWithResponseHandler | key: 65537|
8 FecTableSwTable::entryWriteGeneric |key: 65537|
unit 7 transientVersionForKey 65537: add none, remove v0.0, version 1.0; alive: 2 wrappers, 2 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove none, version 1.0; alive: 3 wrappers, 2 resolver entries
unit 7 transientAddEntry 65537: add v1.0, remove none, version 1.0; alive: 3 wrappers, 2 resolver entries
8 GroupResolver::resolverQueueEnq |flags 0|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryWriteGeneric |Done processing write for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, AWriteWhoseDependencyResolvesLater) {
  const auto other = dependency(State::notResolved);
  write(kKey, "", other);
  take();
  other->stateIs(State::done);
  EXPECT_EQ(take(), R"(
8 GroupResolver::updateGenId ||
)");
}

TEST_F(FecTableRequestStepsTest, ARemoveOfAKeyThatWasNeverWritten) {
  table().entryRemove(key(kKey), nullptr);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemove | key: 65537|
8 FecTableSwTable::entryRemoveWithResponseHandler | key: 65537|
8 FecTableSwTable::entryRemoveGeneric | Key: 65537 |
8 FecTableSwTable::entryRemoveGeneric | Key: 65537 not found in entry version collection|
unit 7 transientVersionForKey 65537: add none, remove none, version 0.0; alive: 0 wrappers, 0 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove v0.0, version 0.0; alive: 1 wrappers, 1 resolver entries
8 GroupResolver::resolverQueueEnq |flags 1|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveGeneric | Done processing remove for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, ARemoveOfAKeyWhoseWriteIsPending) {
  write(kKey, "eth1");
  write(kOther);
  take();
  remove(kKey);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveWithResponseHandler | key: 65537|
8 FecTableSwTable::entryRemoveGeneric | Key: 65537 |
unit 7 transientVersionForKey 65537: add v0.0, remove none, version 1.0; alive: 2 wrappers, 2 resolver entries
unit 7 transientAddEntry 65537: add none, remove none, version 1.0; alive: 3 wrappers, 3 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove v1.0, version 1.0; alive: 3 wrappers, 3 resolver entries
8 GroupResolver::resolverQueueEnq |flags 1|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveGeneric | Done processing remove for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, TheFirstRemoveAll) {
  write(kKey);
  remove(kOther);
  take();
  table().entryRemoveAll(nullptr);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveAll ||
8 FecTableSwTable::entryRemoveAllWithResponseHandler ||
8 FecTableSwTable::entryRemoveAllGeneric ||
unit 7 transientAddEntry 65537: add none, remove none, version 0.0; alive: 3 wrappers, 3 resolver entries
unit 7 transientRemoveEntry 4294901761: add none, remove none, version 0.0; alive: 3 wrappers, 3 resolver entries
8 FecTableSwTable::entryRemoveAllGeneric |No remove all operation currently enqueued|
unit 7 transientRemoveAllVersion from 18446744073709551615 to 0; alive: 3 wrappers, 3 resolver entries
8 GroupResolver::resolverQueueEnq |flags 2|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveAllGeneric |Done processing remove all |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, ARemoveAllWhileOneIsPending) {
  removeAll();
  take();
  removeAll();
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveAllWithResponseHandler ||
8 FecTableSwTable::entryRemoveAllGeneric ||
8 FecTableSwTable::entryRemoveAllGeneric |Found valid table remove all version: 0|
unit 7 transientRemoveAllVersion from 0 to 1; alive: 2 wrappers, 2 resolver entries
8 GroupResolver::resolverQueueEnq |flags 2|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveAllGeneric |Done processing remove all |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

TEST_F(FecTableRequestStepsTest, ARemoveAllBehindManyGoesOnCountingAboveThirtyTwoBits) {
  table().transientRemoveAllVersionIs(MajorVersion(0xFFFF'FFFF));
  take();
  removeAll();
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveAllWithResponseHandler ||
8 FecTableSwTable::entryRemoveAllGeneric ||
8 FecTableSwTable::entryRemoveAllGeneric |Found valid table remove all version: 4294967295|
unit 7 transientRemoveAllVersion from 4294967295 to 4294967296; alive: 1 wrappers, 1 resolver entries
8 GroupResolver::resolverQueueEnq |flags 2|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveAllGeneric |Done processing remove all |
8 FecTableSwTable::maybeUpdateSuspend ||
)");
}

// Suspend.

class FecTableSuspendStepsTest : public StepsFixture {
 protected:
  void queueLengthIs(std::uint32_t length) {
    write(kThird);
    const auto entry = lastQueued();
    std::uint32_t kept = 0;
    resolver().resolverQueueDelIf([&](const Asic::ResolverEntry&) { return kept++ >= length; });
    while (resolver().resolverQueueLength() < length) {
      resolver().resolverQueueEnq(entry);
    }
    take();
  }
};

TEST_F(FecTableSuspendStepsTest, TheTenThousandthThatWaitsTurnsSuspendOnAtTheEndOfItsRequest) {
  queueLengthIs(9998);
  write(kKey);
  ASSERT_FALSE(table().status()->suspend());
  take();
  remove(kKey);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveWithResponseHandler | key: 65537|
8 FecTableSwTable::entryRemoveGeneric | Key: 65537 |
unit 7 transientVersionForKey 65537: add v0.0, remove none, version 1.0; alive: 2 wrappers, 2 resolver entries
unit 7 transientAddEntry 65537: add none, remove none, version 1.0; alive: 3 wrappers, 3 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove v1.0, version 1.0; alive: 3 wrappers, 3 resolver entries
8 GroupResolver::resolverQueueEnq |flags 1|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveGeneric | Done processing remove for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
2 FecTableSwTable::maybeUpdateSuspend |Turning on suspend|
status suspend true
)");
  take();
  removeAll();
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveAllWithResponseHandler ||
8 FecTableSwTable::entryRemoveAllGeneric ||
unit 7 transientAddEntry 2147483649: add none, remove none, version 0.0; alive: 4 wrappers, 4 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove none, version 1.0; alive: 4 wrappers, 4 resolver entries
8 FecTableSwTable::entryRemoveAllGeneric |No remove all operation currently enqueued|
unit 7 transientRemoveAllVersion from 18446744073709551615 to 0; alive: 4 wrappers, 4 resolver entries
8 GroupResolver::resolverQueueEnq |flags 2|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveAllGeneric |Done processing remove all |
8 FecTableSwTable::maybeUpdateSuspend ||
)") << "it is set once";
}

TEST_F(FecTableSuspendStepsTest, TheRequestThatFindsFewEnoughTurnsSuspendOff) {
  queueLengthIs(7999);
  table().status()->suspendIs(true);
  remove(kKey);
  ASSERT_TRUE(table().status()->suspend());
  queueLengthIs(7998);
  write(kKey);
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryWriteWithResponseHandler | key: 65537|
8 FecTableSwTable::entryWriteGeneric |key: 65537|
unit 7 transientVersionForKey 65537: add none, remove v0.0, version 1.0; alive: 3 wrappers, 1 resolver entries
unit 7 transientRemoveEntry 65537: add none, remove none, version 1.0; alive: 3 wrappers, 1 resolver entries
unit 7 transientAddEntry 65537: add v1.0, remove none, version 1.0; alive: 3 wrappers, 1 resolver entries
8 GroupResolver::resolverQueueEnq |flags 0|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryWriteGeneric |Done processing write for key: 65537 |
8 FecTableSwTable::maybeUpdateSuspend ||
2 FecTableSwTable::maybeUpdateSuspend |Turning off suspend|
status suspend false
)");
  removeAll();
  EXPECT_EQ(take(), R"(
8 FecTableSwTable::entryRemoveAllWithResponseHandler ||
8 FecTableSwTable::entryRemoveAllGeneric ||
unit 7 transientAddEntry 2147483649: add none, remove none, version 1.0; alive: 3 wrappers, 3 resolver entries
unit 7 transientAddEntry 65537: add none, remove none, version 1.0; alive: 3 wrappers, 3 resolver entries
8 FecTableSwTable::entryRemoveAllGeneric |No remove all operation currently enqueued|
unit 7 transientRemoveAllVersion from 18446744073709551615 to 0; alive: 3 wrappers, 3 resolver entries
8 GroupResolver::resolverQueueEnq |flags 2|
8 GroupResolver::updateGenId ||
2 FecTableSwTable::entryRemoveAllGeneric |Done processing remove all |
8 FecTableSwTable::maybeUpdateSuspend ||
)") << "it is cleared once";
}

// Resolution.

class FecTableResolutionStepsTest : public StepsFixture {};

TEST_F(FecTableResolutionStepsTest, AWriteThatNeedsNothing) {
  write(kKey);
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
resolved
)");
}

TEST_F(FecTableResolutionStepsTest, AWriteWhoseInterfaceHasNoDestinationYet) {
  write(kKey, "eth1");
  for (const auto state : {State::notResolved, State::hwWritePending}) {
    stateIs("eth1", state);
    EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::resAccessorCheckResolved |key: 65537 is still unresolved!|
not resolved
)");
  }
}

TEST_F(FecTableResolutionStepsTest, AWriteWhoseInterfaceHasADestinationOrHasFailed) {
  write(kKey, "eth1");
  for (const auto state :
       {State::done, State::dependencyFailed, State::commitFailed, State::resourceFailed}) {
    stateIs("eth1", state);
    EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
client request eth1, dependency null
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
resolved
)");
  }
}

TEST_F(FecTableResolutionStepsTest, AWriteWhoseDependencyIsNotResolved) {
  write(kKey, "eth1", dependency(State::notResolved));
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry not yet resolved|
not resolved
)");
}

TEST_F(FecTableResolutionStepsTest, AWriteWhoseDependencyHasLeftStateZero) {
  for (const auto state : {State::hwWritePending, State::dependencyFailed, State::done,
                           State::commitFailed, State::resourceFailed}) {
    write(kKey, "", dependency(state));
    EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false, isTableDeleted: false, resolved: true|
resolved
)");
  }
}

TEST_F(FecTableResolutionStepsTest, ARemove) {
  commitOn("eth1", {kKey});
  remove(kKey);
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
resolved
)");
}

TEST_F(FecTableResolutionStepsTest, ARemoveWithDependency) {
  remove(kKey, dependency(State::notResolved));
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry not yet resolved|
not resolved
)");
  remove(kKey, dependency(State::commitFailed));
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
3 FecTableSwTable::isResolverEntryResolved |key: 65537 dependant entry is resolved|
3 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: true, isTableDeleted: false, resolved: true|
resolved
)");
}

TEST_F(FecTableResolutionStepsTest, ARemoveAll) {
  removeAll();
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
resolved
)");
}

TEST_F(FecTableResolutionStepsTest, ARemoveAllWithDependency) {
  removeAll(dependency(State::notResolved));
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
3 FecTableSwTable::isResolverEntryResolved |key: 0 dependant entry not yet resolved|
not resolved
)");
  removeAll(dependency(State::resourceFailed));
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
3 FecTableSwTable::isResolverEntryResolved |key: 0 dependant entry is resolved|
8 FecTableSwTable::setRsrcPtrs |key: 0, refresh: true|
3 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false, isTableDeleted: true, resolved: true|
resolved
)");
}

TEST_F(FecTableResolutionStepsTest, ATableThatEndsInsideItsCheckEndsBehindIt) {
  commitOn("eth2", {kOther});
  write(kKey, "eth1");
  const auto entry = lastQueued();
  client().onCall = [this](auto&&...) {
    recorder_->step("the unit ends");
    agent_.fec().unitDel(UnitId(kUnit));
  };
  recorder_->letGo();
  take();
  entry->isResolved();
  EXPECT_EQ(take(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
8 FecTableSwTable::setRsrcPtrs |key: 65537, refresh: true|
the unit ends
2 FecTableInterface::unitDel |unitId: 7|
8 GroupResolver::resolverQueueDelIf ||
8 FecTableSwTable::maybeUpdateSuspend ||
unit 7 entryUsageSm eth2 removed
3 FecTableSwTable::resAccessorCheckResolved |key: 65537 is still unresolved!|
8 GroupResolver::resolverQueueDelIf ||
)");
}

TEST_F(FecTableResolutionStepsTest, NothingResolvesWhileTheLogIsFull) {
  auto& rows = log().tableEntryLog()->entryLogConfig();
  {
    const TraceRecorder unseen({"GlintMap"}, 0);
    for (std::uint64_t version = 1; version < FecTableConstants::kEntryLogCapacity; ++version) {
      rows.rowIs({LogVersion(version), 0, UnitId(kUnit), {}});
    }
  }
  write(kKey, "", dependency(State::done));
  ASSERT_TRUE(lastQueued()->isResolved()) << "there is room for one more";
  rows.rowIs({LogVersion(FecTableConstants::kEntryLogCapacity), 0, UnitId(kUnit), {}});
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 65537|
1 FecTableSwTable::isResolverEntryResolved |key: 65537, isEntryDeleted: false : no space in entryLog!|
not resolved
)");
  remove(kOther);
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 4294901761|
1 FecTableSwTable::isResolverEntryResolved |key: 4294901761, isEntryDeleted: true : no space in entryLog!|
not resolved
)");
  removeAll();
  EXPECT_EQ(resolutionOfTheLast(), R"(
8 FecTableResolverEntry::isResolved |key: 0|
1 FecTableSwTable::isResolverEntryResolved |key: 0, isEntryDeleted: false : no space in entryLog!|
not resolved
)");
}

}  // namespace
