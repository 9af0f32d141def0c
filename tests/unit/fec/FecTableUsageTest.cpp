// SPDX-License-Identifier: Apache-2.0

// Usage records: which entries use a resource, what the resource table is told of it.

#include "LinkageFixture.h"

namespace {

using namespace fec_test;

class UsageTest : public LinkageFixture {
 protected:
  // Publications of the linkage while it lives: the keys of attribute 139.
  class UsageWatch {
   public:
    using Reaction = std::function<void(const std::string&)>;
    explicit UsageWatch(Linkage& linkage, Reaction reaction = {})
        : linkage_(linkage),
          subscriber_([this, reaction = std::move(reaction)](Pell::Publisher*, Pell::Subscriber*,
                                                             short attribute, const void* element,
                                                             const void*) {
            EXPECT_EQ(attribute, 139);
            keys.push_back(fmt::format("{}", *static_cast<const ResourceTable::Key*>(element)));
            if (reaction) {
              reaction(keys.back());
            }
          }) {
      linkage_.publisher().subscriberAdd(subscriber_);
    }
    ~UsageWatch() { linkage_.publisher().subscriberRemove(subscriber_); }
    UsageWatch(const UsageWatch&) = delete;
    UsageWatch& operator=(const UsageWatch&) = delete;

    Texts keys;

   private:
    Linkage& linkage_;
    Pell::Subscriber subscriber_;
  };
};
using UsageDeathTest = UsageTest;

// One record.

TEST_F(UsageTest, ARecordHoldsItsHandleAndIsFiledUnderTheHandlesKey) {
  const auto made = LoamFec::localUsageUpdateSmFactory(handle(), &linkage());
  EXPECT_EQ(made->resourceHandle(), handle());
  EXPECT_EQ(made->key(), resKey("eth1"));
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_THAT(made->entryUsage(), IsEmpty());
}

TEST_F(UsageTest, ARecordWithoutAHandleHasTheNullKeyAndHearsNothing) {
  const auto made = Record::LocalUsageUpdateSmIs(nullptr, &linkage());
  EXPECT_EQ(made->resourceHandle(), nullptr);
  EXPECT_TRUE(made->key().isNull());
}

TEST_F(UsageTest, KeysAreASetAddingOrRemovingTwiceChangesNothing) {
  const auto made = Record::LocalUsageUpdateSmIs(handle(), &linkage());
  made->entryUsageIs(key(1));
  made->entryUsageIs(key(1));
  made->entryUsageIs(key(2));
  EXPECT_EQ(made->entryUsage().size(), 2U);
  EXPECT_TRUE(made->entryUsageHas(key(1)));
  EXPECT_FALSE(made->entryUsageHas(key(3)));
  made->entryUsageDel(key(1));
  made->entryUsageDel(key(1));
  EXPECT_FALSE(made->entryUsageHas(key(1)));
  EXPECT_EQ(made->entryUsage().size(), 1U);
  made->entryUsageDelAll();
  EXPECT_THAT(made->entryUsage(), IsEmpty());
}

TEST_F(UsageTest, AKeyIsPublishedWhenItComesAndWhenItGoesAndOnlyThen) {
  const auto made = Record::LocalUsageUpdateSmIs(handle(), &linkage());
  std::vector<std::uint32_t> published;
  Pell::Subscriber observer([&](Pell::Publisher*, Pell::Subscriber*, short attribute,
                                const void* element, const void*) {
    EXPECT_EQ(attribute, Record::kEntryUsageAttribute);
    published.push_back(static_cast<const LoamFec::FecTableDataModelEntryKey*>(element)->fecId());
  });
  made->publisher().subscriberAdd(observer);
  made->entryUsageIs(key(1));
  made->entryUsageIs(key(1));
  made->entryUsageIs(key(2));
  made->entryUsageIs(key(3));
  made->entryUsageDel(key(9));
  made->entryUsageDel(key(1));
  EXPECT_THAT(published, ElementsAre(1U, 2U, 3U, 1U));
  published.clear();
  made->entryUsageDelAll();
  EXPECT_THAT(published, ElementsAre(2U, 3U));
  made->entryUsageDelAll();
  EXPECT_EQ(published.size(), 2U);
  made->publisher().subscriberRemove(observer);
}

TEST_F(UsageTest, ARecordIsSubscribedToItsHandleForAsLongAsItLives) {
  EXPECT_TRUE(handle()->publisher().idle());
  {
    const auto made = Record::LocalUsageUpdateSmIs(handle(), &linkage());
    EXPECT_FALSE(handle()->publisher().idle());
  }
  EXPECT_TRUE(handle()->publisher().idle());
}

// Notes in which state of affairs it ends.
class LastHandle : public ScriptedResourceHandle {
 public:
  LastHandle(const ResourceTable::Key& key, bool& endedIdle)
      : ScriptedResourceHandle(key), endedIdle_(endedIdle) {}
  ~LastHandle() override { endedIdle_ = publisher().idle(); }

 private:
  bool& endedIdle_;
};

TEST_F(UsageTest, ARecordThatGoesUnsubscribesBeforeItReleasesItsHandle) {
  bool endedIdle = false;
  auto made = Record::LocalUsageUpdateSmIs(Zev::makeObject<LastHandle>(resKey("eth1"), endedIdle),
                                           &linkage());
  made = nullptr;
  EXPECT_TRUE(endedIdle);
}

// Looks at the record that releases it.
class WatchingHandle : public ScriptedResourceHandle {
 public:
  WatchingHandle(const ResourceTable::Key& key, bool& keysHadGone)
      : ScriptedResourceHandle(key), keysHadGone_(keysHadGone) {}
  ~WatchingHandle() override {
    keysHadGone_ = !record->hasNotificationActive() && record->entryUsage().empty();
  }
  LoamFec::FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm* record = nullptr;

 private:
  bool& keysHadGone_;
};

TEST_F(UsageTest, ARecordThatGoesDropsItsKeysBeforeItReleasesItsHandle) {
  bool keysHadGone = false;
  auto last = Zev::makeObject<WatchingHandle>(resKey("eth1"), keysHadGone);
  auto made = Record::LocalUsageUpdateSmIs(last, &linkage());
  made->entryUsageIs(key(1));
  last->record = made.get();
  last = nullptr;
  made = nullptr;
  EXPECT_TRUE(keysHadGone);
}

TEST_F(UsageTest, OnlyAttribute517OfTheHandleIsReactedTo) {
  commitOn("eth1", {1});
  client().acks.clear();
  for (const short attribute : std::initializer_list<short>{516, 518, 1, 0, -517, 139}) {
    handle()->publish(attribute);
  }
  EXPECT_THAT(client().acks, IsEmpty());
  handle()->publish(517);
  EXPECT_EQ(client().acks.size(), 1U);
}

TEST_F(UsageTest, ARecordWhoseNotificationsAreOffHearsNothing) {
  commitOn("eth1", {1});
  client().acks.clear();
  record()->hasNotificationActiveIs(false);
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_THAT(client().acks, IsEmpty());
  EXPECT_EQ(logVersion(), 1U);
}

TEST_F(UsageTest, ARemovedRecordThatSomebodyKeepsHearsNothing) {
  commitOn("eth1", {1});
  const auto kept = linkage().entryUsageSmDel(resKey("eth1"));
  client().acks.clear();
  EXPECT_FALSE(handle()->publisher().idle()) << "subscribed until it goes";
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(UsageTest, ARecordThatOutlivesItsLinkageHearsNothing) {
  auto other = LoamFec::fecTableIntfIdToDestIdLinkageFactory(
      &table(), Zev::makeObject<RecordingResourceClient>());
  const auto kept = other->entryUsageSmIs(handle());
  kept->entryUsageIs(key(1));
  other = nullptr;
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(kept->entryUsage().size(), 1U);
  EXPECT_FALSE(kept->reactsToChanges());
}

// Calls back into the record from the end of the handle that the record releases last.
class DispatchingHandle : public ScriptedResourceHandle {
 public:
  using ScriptedResourceHandle::ScriptedResourceHandle;
  ~DispatchingHandle() override {
    if (record != nullptr) {
      record->resPtrDispatch(nullptr, nullptr, kChangeAttribute, nullptr, nullptr);
    }
  }
  LoamFec::FecTableIntfIdToDestIdLinkage::LocalUsageUpdateSm* record = nullptr;
};

TEST_F(UsageTest, ACallbackWhileTheRecordIsBeingDestroyedIsIgnored) {
  auto last = Zev::makeObject<DispatchingHandle>(resKey("eth1"));
  auto made = Record::LocalUsageUpdateSmIs(last, &linkage());
  last->record = made.get();
  last = nullptr;
  client().acks.clear();
  made = nullptr;
  EXPECT_THAT(client().acks, IsEmpty());
}

// The linkage's records.

TEST_F(UsageTest, FilingARecordPublishes139WithItsKeyAndFilingItAgainReturnsIt) {
  const UsageWatch watch(linkage());
  const auto made = linkage().entryUsageSmIs(handle());
  EXPECT_EQ(linkage().entryUsageSmIs(handle()), made);
  EXPECT_EQ(linkage().entryUsageSm(resKey("eth1")), made);
  EXPECT_EQ(linkage().entryUsageSm(resKey("eth2")), nullptr);
  EXPECT_EQ(watch.keys, Texts{"eth1"});
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
}

TEST_F(UsageTest, ANullHandlesRecordIsFiledUnderTheNullKey) {
  const auto made = linkage().entryUsageSmIs(nullptr);
  EXPECT_EQ(linkage().entryUsageSm(ResourceTable::Key()), made);
}

TEST_F(UsageTest, RemovingARecordReturnsItPublishes139AndTurnsItsNotificationsOff) {
  const auto made = linkage().entryUsageSmIs(handle());
  bool activeWhenPublished = false;
  const UsageWatch watch(linkage(), [&](const std::string&) {
    activeWhenPublished = made->hasNotificationActive();
    EXPECT_EQ(linkage().entryUsageSm(resKey("eth1")), nullptr);
  });
  EXPECT_EQ(linkage().entryUsageSmDel(resKey("eth1")), made);
  EXPECT_TRUE(activeWhenPublished);
  EXPECT_FALSE(made->hasNotificationActive());
  EXPECT_EQ(linkage().entryUsageSmDel(resKey("eth1")), nullptr);
  EXPECT_EQ(watch.keys, Texts{"eth1"});
}

TEST_F(UsageTest, RemovingEveryRecordTellsTheResourceTableNothing) {
  commitOn("eth1", {1});
  commitOn("eth2", {2});
  linkage().entryUsageSmIs(nullptr);
  const UsageWatch watch(linkage());
  linkage().entryUsageSmDelAll();
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_THAT(watch.keys, ::testing::UnorderedElementsAre("eth1", "eth2", ""));
  EXPECT_THAT(client().releases, IsEmpty());
}

// What commits do.

TEST_F(UsageTest, TheFirstUserFilesARecordAndAcknowledgesTheCurrentUpdateASecondOnlyAddsItsKey) {
  handle()->contentsAre(EntryState::notResolved, {});
  handle()->contentsAre(EntryState::done, {100, 0, 0});
  commitOn("eth1", {1});
  ASSERT_EQ(client().acks.size(), 1U);
  EXPECT_EQ(client().acks[0].key, resKey("eth1"));
  EXPECT_EQ(client().acks[0].updateNumber, 2U);
  EXPECT_EQ(client().acks[0].dependency, nullptr);
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U));
  commitOn("eth1", {2});
  EXPECT_EQ(client().acks.size(), 1U);
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U, 2U));
}

TEST_F(UsageTest, AQueuedWriteIsNotAUser) {
  write(1, "eth1");
  agent_.run();
  EXPECT_EQ(record(), nullptr);
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(UsageTest, AWriteThatFailsHasAskedForItsInterfaceAndReleasesNothing) {
  handle()->contentsAre(EntryState::resourceFailed, {});
  const Handle failed = write(1, "eth1");
  agent_.run();
  EXPECT_EQ(failed->entryState(), EntryState::commitFailed);
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth1"), resKey("eth1")));
  EXPECT_THAT(client().acks, IsEmpty());
  EXPECT_THAT(client().releases, IsEmpty());
  EXPECT_EQ(record(), nullptr);
}

TEST_F(UsageTest, RewritingTheOnlyUserReleasesTheOldHandleAndAcknowledgesTheNewOne) {
  commitOn("eth1", {1});
  handle("eth2")->contentsAre(EntryState::done, {200, 0, 0});
  client().acks.clear();
  const UsageWatch watch(linkage(), [&](const std::string& intf) {
    EXPECT_EQ(client().releases.size(), 1U) << "released before its record goes";
    EXPECT_THAT(client().acks, IsEmpty()) << "the old record goes before the new one is told of";
    EXPECT_EQ(record("eth1"), nullptr) << intf;
    EXPECT_EQ(logVersion(), 1U) << "usage moves before the rewrite is logged";
  });
  const Handle rewrite = write(1, "eth2");
  agent_.run();
  ASSERT_EQ(client().releases.size(), 1U);
  EXPECT_EQ(client().releases[0].key, resKey("eth1"));
  EXPECT_EQ(client().releases[0].dependency, rewrite);
  ASSERT_EQ(client().acks.size(), 1U);
  EXPECT_EQ(client().acks[0].key, resKey("eth2"));
  EXPECT_EQ(client().acks[0].dependency, nullptr);
  EXPECT_EQ(watch.keys, (Texts{"eth1", "eth2"}));
  EXPECT_EQ(record("eth1"), nullptr);
  EXPECT_THAT(usersOf("eth2"), ElementsAre(1U));
}

TEST_F(UsageTest, RewritingOneOfTwoUsersReleasesNothing) {
  commitOn("eth1", {1, 2});
  commitOn("eth2", {1});
  EXPECT_THAT(client().releases, IsEmpty());
  EXPECT_THAT(usersOf("eth1"), ElementsAre(2U));
  EXPECT_THAT(usersOf("eth2"), ElementsAre(1U));
}

TEST_F(UsageTest, RewritingWithTheSameInterfaceChangesNoUsage) {
  commitOn("eth1", {1});
  client().acks.clear();
  const UsageWatch watch(linkage());
  commitOn("eth1", {1});
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_THAT(watch.keys, IsEmpty());
  EXPECT_THAT(client().acks, IsEmpty());
  EXPECT_THAT(client().releases, IsEmpty());
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U));
}

TEST_F(UsageTest, RewritingToTheNullInterfaceReleasesAndTracksNothing) {
  commitOn("eth1", {1});
  writeCommitted(1, "");
  EXPECT_EQ(client().releases.size(), 1U);
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
}

TEST_F(UsageTest, RemovingTheLastUserReleasesWithTheRemovesHandle) {
  commitOn("eth1", {1, 2});
  remove(1);
  agent_.run();
  EXPECT_THAT(client().releases, IsEmpty());
  const Handle last = remove(2);
  agent_.run();
  ASSERT_EQ(client().releases.size(), 1U);
  EXPECT_EQ(client().releases[0].key, resKey("eth1"));
  EXPECT_EQ(client().releases[0].dependency, last);
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
}

TEST_F(UsageTest, DeletingAnEntryThatIsNotInTheLogChangesNothing) {
  commitOn("eth1", {1});
  const TraceRecorder recorder({kTrace});
  linkage().updateLocalUsage(wrapper(9, "eth1"), true);
  EXPECT_EQ(recorder.texts(), Texts{"key: 9"});
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U));
  EXPECT_THAT(client().releases, IsEmpty());
}

TEST_F(UsageTest, DeletingAnEntryWhoseInterfaceHasNoRecordIsIgnored) {
  commitOn("eth1", {1});
  linkage().entryUsageSmDel(resKey("eth1"));
  const TraceRecorder recorder({kTrace});
  linkage().updateLocalUsage(wrapper(1), true);
  EXPECT_EQ(recorder.texts(), (Texts{"key: 1", "resKey: eth1, swKey: 1"}));
  EXPECT_THAT(client().releases, IsEmpty());
}

TEST_F(UsageTest, ThePreviousInterfaceIsTheCommittedOneAndNotAQueuedOne) {
  commitOn("eth1", {1});
  handle("eth3")->contentsAre(EntryState::done, {300, 0, 0});
  write(1, "eth2");  // unresolved: stays queued
  write(1, "eth3");
  agent_.run();
  ASSERT_EQ(client().releases.size(), 1U);
  EXPECT_EQ(client().releases[0].key, resKey("eth1"));
  EXPECT_THAT(usersOf("eth3"), ElementsAre(1U));
  EXPECT_EQ(record("eth2"), nullptr);
}

TEST_F(UsageTest, AnEntryOnTheNullInterfaceIsTracedAsNullAndNotTracked) {
  const TraceRecorder recorder({kTrace});
  writeCommitted(7, "");
  EXPECT_THAT(recorder, HasTrace(8, "key: 7"));
  EXPECT_THAT(recorder, HasTrace(8, "resKey: , swKey: 7"));
  EXPECT_THAT(recorder, HasTrace(3, "Null resKey: "));
  EXPECT_EQ(recorder.textsOf("addResKeyMapping").size(), 2U);
  EXPECT_EQ(recorder.textsOf("updateLocalUsage"), Texts{"key: 7"});
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(UsageTest, UsageIsTracedAtLevel8UnderTheNamesOfItsSteps) {
  commitOn("eth1", {7});
  const TraceRecorder recorder({kTrace});
  commitOn("eth2", {7});
  EXPECT_EQ(recorder.textsOf("deleteResKeyMapping"), Texts{"resKey: eth1, swKey: 7"});
  EXPECT_EQ(recorder.textsOf("addResKeyMapping"), Texts{"resKey: eth2, swKey: 7"});
  EXPECT_EQ(recorder.count(8, "resKey: eth1, swKey: 7"), 1U);
  EXPECT_EQ(recorder.count(8, "resKey: eth2, swKey: 7"), 1U);
}

TEST_F(UsageTest, WithoutAClientTheFirstUserIsTrackedAndNothingIsAcknowledged) {
  const auto alone = LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), nullptr);
  const WrapperPtr entry = wrapper(1);
  entry->intfIdResPtrIs(handle());
  alone->updateLocalUsage(entry, false);
  const auto held = alone->entryUsageSm(resKey("eth1"));
  ASSERT_TRUE(held);
  EXPECT_TRUE(held->entryUsageHas(key(1)));
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(UsageDeathTest, AnEntryWhoseRequestWasAnsweredWithNullIsAFaultOfTheResourceTable) {
  client().answersNull = true;
  write(1, "eth1");
  EXPECT_DEATH(generation(),
               "assertion failed: record: the resource table's handle is not that of eth1");
}

TEST_F(UsageDeathTest, AHandleOfAnotherInterfaceIsAFaultOfTheResourceTable) {
  const WrapperPtr entry = wrapper(1, "eth1");
  entry->intfIdResPtrIs(handle("eth2"));
  EXPECT_DEATH(linkage().updateLocalUsage(entry, false),
               "assertion failed: record: the resource table's handle is not that of eth1");
}

}  // namespace
