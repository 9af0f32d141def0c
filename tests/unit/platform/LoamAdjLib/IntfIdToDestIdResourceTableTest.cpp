// SPDX-License-Identifier: Apache-2.0

// Handles, when they change, and what a change waits for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResourceTableFixture.h"

namespace {

using namespace resource_table_test;
using Asic::EntryState;

// Handles.

TEST_F(ResourceTableTest, RequestGivesOneHandleObjectPerKeyForGood) {
  const auto secondClient = table_->makeClientInstance();
  const Handle* first = request().get();
  destinationIs("eth1", kFirst);  // nobody holds the handle meanwhile
  EXPECT_EQ(request().get(), first);
  EXPECT_EQ(secondClient->request(key("eth1"), nullptr).get(), first);
  client_->release(request(), nullptr);
  run();
  EXPECT_EQ(request().get(), first);
  EXPECT_EQ(first->destId(), kFirst);
  EXPECT_NE(request("eth2").get(), first);
}

TEST_F(ResourceTableTest, RequestIsNeverAnsweredWithNullOrAnotherKeysHandle) {
  for (const char* name : {"eth1", "Ethernet3/1/2.100", "Vlan4094"}) {
    const HandlePtr handle = request(name);
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->key(), key(name));
  }
}

TEST_F(ResourceTableTest, ANewHandleIsNotResolvedAndShowsNoDestination) {
  const HandlePtr handle = request();
  EXPECT_EQ(handle->entryState(), EntryState::notResolved);
  EXPECT_EQ(handle->destId(), (DestId{0xFFFF, 0, 0}));
  EXPECT_EQ(handle->neededEntry(), nullptr);
  EXPECT_EQ(handle->updateNumber(), 0U);
}

TEST_F(ResourceTableTest, RequestIsNotCountedAndHoldsNoChangeBack) {
  const HandlePtr handle = request();
  for (int i = 0; i < 1000; ++i) {
    request();
  }
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, ADestinationMayBeSetBeforeAnybodyAsksForIt) {
  destinationIs("eth1", kFirst);
  EXPECT_EQ(request()->destId(), kFirst);
  EXPECT_EQ(request()->entryState(), EntryState::done);
}

// Changes.

TEST_F(ResourceTableTest, NothingReactsInsideACall) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  const HandleWatch watch(handle);
  table_->destinationIs(intf("eth1"), kSecond);
  table_->destinationFailed(intf("eth1"));
  table_->destinationDel(intf("eth1"));
  client_->ackUpdate(handle, handle->updateNumber(), nullptr);
  client_->release(handle, nullptr);
  EXPECT_THAT(watch.seen, ::testing::IsEmpty());
  EXPECT_EQ(handle->destId(), kFirst);
  EXPECT_THAT(freed_, ::testing::IsEmpty());
  run();
  EXPECT_EQ(watch.seen.size(), 1U);
}

TEST_F(ResourceTableTest, TheChangeAttributeIs517) { EXPECT_EQ(Handle::kChangeAttribute, 517); }

TEST_F(ResourceTableTest, EachChangeOfStateDestinationOrNeededSetPublishes517WithTheNextNumber) {
  const HandlePtr handle = request();
  const HandleWatch watch(handle);
  const Needed versions = needed({{kOtherTable, Asic::LogVersion(7)}});
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kSecond, versions);
  EXPECT_EQ(handle->neededEntry(), versions);
  table_->destinationFailed(intf("eth1"));
  run();
  table_->destinationDel(intf("eth1"));
  run();

  ASSERT_EQ(watch.seen.size(), 5U);
  const EntryState states[] = {EntryState::done, EntryState::done, EntryState::done,
                               EntryState::resourceFailed, EntryState::notResolved};
  const DestId destinations[] = {kFirst, kSecond, kSecond, DestId(), DestId()};
  for (std::uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(watch.seen[i].attributeId, 517);
    EXPECT_EQ(watch.seen[i].state, states[i]);
    EXPECT_EQ(watch.seen[i].destId, destinations[i]);
    EXPECT_EQ(watch.seen[i].updateNumber, i + 1);
  }
}

TEST_F(ResourceTableTest, AnEqualValueChangesNothing) {
  const HandlePtr handle = request();
  const Asic::TableVersion one(kTable, Asic::LogVersion(1));
  const Asic::TableVersion two(kOtherTable, Asic::LogVersion(2));
  destinationIs("eth1", kFirst, needed({one, two}));
  const HandleWatch watch(handle);
  destinationIs("eth1", kFirst, needed({one, two}));
  destinationIs("eth1", kFirst, needed({two, one}));
  EXPECT_THAT(watch.seen, ::testing::IsEmpty());
  destinationIs("eth1", kFirst, needed({one}));
  EXPECT_EQ(watch.seen.size(), 1U);
  destinationIs("eth1", kFirst, nullptr);
  destinationIs("eth1", kFirst, needed({}));
  EXPECT_EQ(watch.seen.size(), 2U);
  table_->destinationDel(intf("eth2"));
  table_->destinationDel(intf("eth2"));
  run();
  EXPECT_EQ(request("eth2")->updateNumber(), 0U);
}

TEST_F(ResourceTableTest, SeveralChangesBeforeATurnMakeOneWithTheLast) {
  const HandlePtr handle = request();
  const HandleWatch watch(handle);
  table_->destinationIs(intf("eth1"), kFirst);
  table_->destinationFailed(intf("eth1"));
  table_->destinationIs(intf("eth1"), kSecond);
  run();
  ASSERT_EQ(watch.seen.size(), 1U);
  EXPECT_EQ(watch.seen[0].destId, kSecond);
  EXPECT_EQ(handle->updateNumber(), 1U);
}

TEST_F(ResourceTableTest, AChangeHasTheResolverLookAgainAndAnEqualValueDoesNot) {
  const auto entry = Zev::makeObject<AskedEntry>();
  resolver_->resolverQueueEnq(entry);
  run();
  EXPECT_EQ(entry->asked, 0);
  destinationIs("eth1", kFirst);
  EXPECT_EQ(entry->asked, 1);
  destinationIs("eth1", kFirst);
  EXPECT_EQ(entry->asked, 1);
  table_->destinationIs(intf("eth1"), kSecond);
  table_->destinationIs(intf("eth2"), kSecond);
  run();
  EXPECT_EQ(entry->asked, 2) << "two changes of one turn make one walk";
  table_->destinationFailed(intf("eth1"));
  run();
  EXPECT_EQ(entry->asked, 3);
}

// Stop and wait.

TEST_F(ResourceTableTest, TheNextChangeWaitsForTheAcknowledgementOfTheLast) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kSecond) << "not acknowledged yet";
  ack(handle);
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, TheNextChangeWaitsUntilTheAcknowledgedOperationIsApplied) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(9);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10, kOtherTable);
  EXPECT_EQ(handle->destId(), kFirst) << "another table's version";
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, AVersionBeyondTheAcknowledgedOneAppliesItToo) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  destinationIs("eth1", kSecond);
  applied(11);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, AnOperationThatIsAppliedAlreadyHoldsNothingBack) {
  const HandlePtr handle = request();
  applied(10);
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, EveryUsingClientMustAcknowledge) {
  const auto secondClient = table_->makeClientInstance();
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  secondClient->ackUpdate(handle, 1, nullptr);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  ack(handle);
  EXPECT_EQ(handle->destId(), kSecond) << "the second client has not acknowledged";
  secondClient->ackUpdate(handle, 2, nullptr);
  run();
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, ChangesOfOneHandleDoNotWaitForAnother) {
  const HandlePtr waiting = request("eth1");
  const HandlePtr other = request("eth2");
  destinationIs("eth1", kFirst);
  ack(waiting, operation(10));
  destinationIs("eth1", kSecond);
  destinationIs("eth2", kThird);
  EXPECT_EQ(waiting->destId(), kFirst);
  EXPECT_EQ(other->destId(), kThird);
}

TEST_F(ResourceTableTest, ManyChangesWhileWaitingCoalesceToTheLast) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  const HandleWatch watch(handle);
  for (std::uint32_t i = 0; i < 100; ++i) {
    destinationIs("eth1", DestId{1000 + i, 0, 0});
    table_->destinationDel(intf("eth1"));
    run();
  }
  destinationIs("eth1", kThird);
  EXPECT_THAT(watch.seen, ::testing::IsEmpty());
  applied(10);
  ASSERT_EQ(watch.seen.size(), 1U);
  EXPECT_EQ(watch.seen[0].destId, kThird);
  EXPECT_EQ(watch.seen[0].updateNumber, 2U);
}

TEST_F(ResourceTableTest, ChangesThatComeBackToWhatIsShownPublishNothing) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  const HandleWatch watch(handle);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kFirst);
  applied(10);
  EXPECT_THAT(watch.seen, ::testing::IsEmpty());
}

TEST_F(ResourceTableTest, AnAcknowledgementOfAnotherNumberAcknowledgesNothing) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  for (const std::uint32_t number : {0U, 1U, 3U}) {
    client_->ackUpdate(handle, number, nullptr);
    run();
    EXPECT_EQ(handle->destId(), kSecond) << number;
  }
  ack(handle);
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, AFirstAcknowledgementWithAnOldNumberAcknowledgesNothing) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  client_->ackUpdate(handle, 0, nullptr);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst) << "in use, and not acknowledged";
  ack(handle);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, TheOperationOfAnOldAcknowledgementHoldsBackTheFreeingAlone) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  client_->ackUpdate(handle, 1, operation(10));
  ack(handle);
  EXPECT_THAT(freed_, ::testing::IsEmpty());
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kThird);
  applied(10);
  EXPECT_EQ(freed_, std::vector<Freed>({{intf("eth1"), kFirst}}));
}

TEST_F(ResourceTableTest, TheFirstChangeWaitsForNothing) {
  const auto secondClient = table_->makeClientInstance();
  const HandlePtr handle = request();
  ack(handle, operation(10));  // the log as a restart found it
  secondClient->ackUpdate(handle, 7, operation(11));
  destinationIs("eth1", kFirst);
  EXPECT_EQ(handle->destId(), kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst) << "the second one waits as ever";
  ack(handle);
  secondClient->ackUpdate(handle, 1, nullptr);
  run();
  EXPECT_EQ(handle->destId(), kSecond) << "and for no more than its own";
}

// Damage to the record of what is applied makes idle hardware no slower.
TEST_F(ResourceTableTest, WhatWasReportedCountsAlsoWhenItsRecordIsDamaged) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  applied(10);
  damageAppliedVersion();
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, ARecordThatIsDamagedCountsForNoMoreThanWasReported) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  destinationIs("eth1", kSecond);
  applied(9);
  damageAppliedVersion();
  ack(handle);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, AnOldAcknowledgementThatComesLateDoesNotTakeTheCurrentOneBack) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  ack(handle);
  client_->ackUpdate(handle, 1, nullptr);
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, ARepeatedAcknowledgementStillWaitsForTheFirstOnesOperation) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  ack(handle, nullptr);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, TheHighestVersionOfEachTableIsWaitedFor) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  for (const std::uint64_t version : {11U, 12U, 10U}) {
    ack(handle, operation(version));
  }
  ack(handle, operation(5, kOtherTable));
  destinationIs("eth1", kSecond);
  applied(11);
  applied(5, kOtherTable);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(12);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, AnOperationWithoutVersionIsNoConstraint) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(0));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  client_->release(handle, operation(0));
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, AnOperationMayGetItsVersionBetweenTheCallAndItsTurn) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  const auto logged = operation(0);
  client_->ackUpdate(handle, handle->updateNumber(), logged);
  logged->tableVersionIs({kTable, Asic::LogVersion(10)});
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, AnOperationsStateIsNotLookedAt) {
  std::uint64_t version = 10;
  for (const EntryState state : {EntryState::notResolved, EntryState::dependencyFailed,
                                 EntryState::done, EntryState::commitFailed}) {
    const auto logged = operation(version);
    logged->stateIs(state);
    const HandlePtr handle = request();
    destinationIs("eth1", kFirst);
    ack(handle, logged);
    destinationIs("eth1", kSecond);
    EXPECT_EQ(handle->destId(), kFirst) << state;
    applied(version++);
    EXPECT_EQ(handle->destId(), kSecond) << state;
    ack(handle);
  }
}

// Release.

TEST_F(ResourceTableTest, AReleasedHandleWaitsForThatClientNoLonger) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kSecond);
  client_->release(handle, nullptr);
  run();
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, AChangeDoesNotWaitForTheOperationThatAReleaseNames) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->release(handle, operation(10));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_THAT(freed_, ::testing::IsEmpty()) << "the freeing does";
}

TEST_F(ResourceTableTest, AReleaseStillWaitsForTheOperationAcknowledgedBefore) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  client_->release(handle, operation(0));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(ResourceTableTest, ReleasingTwiceOrWhatWasNeverUsedChangesNothing) {
  const HandlePtr handle = request();
  const HandleWatch watch(handle);
  client_->release(handle, nullptr);
  client_->release(handle, nullptr);
  run();
  EXPECT_THAT(watch.seen, ::testing::IsEmpty());
  destinationIs("eth1", kFirst);
  EXPECT_EQ(handle->destId(), kFirst);
}

TEST_F(ResourceTableTest, AClientMayUseAHandleAgainAfterItsRelease) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->release(handle, nullptr);
  ack(request());
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kSecond) << "used again, and not acknowledged";
}

TEST_F(ResourceTableTest, AClientThatIsDestroyedWhileItUsesAHandleIsNotWaitedFor) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  client_ = nullptr;
  run();
  EXPECT_EQ(handle->destId(), kThird);
}

TEST_F(ResourceTableTest, WhatADestroyedClientAcknowledgedMustStillBeApplied) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(10));
  client_ = nullptr;
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(10);
  EXPECT_EQ(handle->destId(), kSecond);
}

// Inside a delivery.

TEST_F(ResourceTableTest, ASubscriberMayAcknowledgeInsideTheDelivery) {
  const HandlePtr handle = request();
  ack(handle);
  Pell::Subscriber acknowledges(
      [&](Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {
        client_->ackUpdate(handle, handle->updateNumber(), nullptr);
      });
  handle->publisher().subscriberAdd(acknowledges);
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_EQ(handle->updateNumber(), 2U);
  handle->publisher().subscriberRemove(acknowledges);
}

TEST_F(ResourceTableTest, ASubscriberMaySetTheNextDestinationInsideTheDelivery) {
  const HandlePtr handle = request();
  Pell::Subscriber sets([&](Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {
    table_->destinationIs(intf("eth1"), kSecond);
    EXPECT_EQ(handle->updateNumber(), handle->destId() == kFirst ? 1U : 2U);
  });
  handle->publisher().subscriberAdd(sets);
  destinationIs("eth1", kFirst);
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_EQ(handle->updateNumber(), 2U);
  handle->publisher().subscriberRemove(sets);
}

TEST_F(ResourceTableTest, ASubscriberMayDropTheTableDuringTheDelivery) {
  const HandlePtr handle = request();
  request("eth2");
  int calls = 0;
  Pell::Subscriber drops([&](Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {
    ++calls;
    client_ = nullptr;
    table_ = nullptr;
  });
  handle->publisher().subscriberAdd(drops);
  table_->destinationIs(intf("eth1"), kFirst);
  table_->destinationIs(intf("eth2"), kSecond);
  run();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(1);  // heard by nobody
  handle->publisher().subscriberRemove(drops);
}

TEST_F(ResourceTableTest, ATurnThatIsMarkedWhenTheTableGoesDoesNothing) {
  const HandlePtr handle = request();
  table_->destinationIs(intf("eth1"), kFirst);
  client_ = nullptr;
  table_ = nullptr;
  run();
  EXPECT_EQ(handle->entryState(), EntryState::notResolved);
}

// The count of what waits.

TEST_F(ResourceTableTest, WaitingUpdatesCountsHandlesWhoseChangeIsNotPublishedYet) {
  EXPECT_EQ(table_->waitingUpdates(), 0U);
  for (const char* name : {"eth1", "eth2"}) {
    const HandlePtr handle = request(name);
    destinationIs(name, kFirst);
    ack(handle, operation(10));
  }
  EXPECT_EQ(table_->waitingUpdates(), 0U) << "unsettled, but nothing is to change";
  destinationIs("eth1", kSecond);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  destinationIs("eth1", kThird);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  destinationIs("eth2", kSecond);
  EXPECT_EQ(table_->waitingUpdates(), 2U);
  destinationIs("eth2", kFirst);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  applied(10);
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

}  // namespace
