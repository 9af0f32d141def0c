// SPDX-License-Identifier: Apache-2.0

// Resolution of an entry's interface: the request, the folding of a resource's state, the needed
// versions.

#include <set>

#include "LinkageFixture.h"
#include "Zev/Hash.h"

namespace {

using namespace fec_test;
using Linkage = LoamFec::FecTableIntfIdToDestIdLinkage;

class LinkageTest : public LinkageFixture {};
using LinkageDeathTest = LinkageTest;

// Making and ending a linkage.

TEST_F(LinkageTest, TheFactoryStoresTableAndClientAndTurnsNotificationsOn) {
  const auto own = Zev::makeObject<RecordingResourceClient>();
  const auto made = LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), own);
  EXPECT_EQ(made->swTable(), &table());
  EXPECT_EQ(made->resTblClient(), own);
  EXPECT_EQ(own->references(), 2U);
  EXPECT_EQ(made->entryUsageSms(), 0U);
  EXPECT_TRUE(made->resolvesEntries());
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(made->notifieeList(), &made->publisher());
}

TEST_F(LinkageTest, TheTypeRecordsNameTheAttributesInOrder) {
  EXPECT_EQ(linkage().fwkType().name, "LoamFec::FecTableIntfIdToDestIdLinkage");
  ASSERT_EQ(linkage().fwkType().attributes.size(), 4U);
  EXPECT_EQ(linkage().fwkType().attributes[2].name, "entryUsageSm");
  EXPECT_EQ(linkage().fwkType().attributes[2].id, 139);
  commitOn("eth1", {1});
  ASSERT_EQ(record()->fwkType().attributes.size(), 4U);
  EXPECT_EQ(record()->fwkType().attributes[3].name, "entryUsage");
}

TEST_F(LinkageTest, TheLinkageDoesNotHoldItsTable) {
  const std::uint32_t references = table().references();
  const auto made = LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), nullptr);
  EXPECT_EQ(table().references(), references);
}

class WatchedClient : public RecordingResourceClient {
 public:
  explicit WatchedClient(bool& alive) : alive_(alive) { alive_ = true; }
  ~WatchedClient() override { alive_ = false; }

 private:
  bool& alive_;
};

TEST_F(LinkageTest, ALinkageThatGoesDropsItsRecordsBeforeItsClientAndReleasesNothing) {
  bool clientAlive = false;
  auto own = Zev::makeObject<WatchedClient>(clientAlive);
  auto made = LoamFec::fecTableIntfIdToDestIdLinkageFactory(&table(), own);
  made->entryUsageSmIs(own->handle("eth1"));
  made->entryUsageSmIs(own->handle("eth2"));
  Texts seen;
  RecordingResourceClient* const observed = own.get();
  Pell::Subscriber subscriber(
      [&](Pell::Publisher*, Pell::Subscriber*, short attribute, const void* element, const void*) {
        EXPECT_EQ(attribute, 139);
        EXPECT_TRUE(clientAlive);
        EXPECT_THAT(observed->releases, IsEmpty());
        seen.push_back(fmt::format("{}", *static_cast<const ResourceTable::Key*>(element)));
      });
  made->publisher().subscriberAdd(subscriber);
  own = nullptr;
  made = nullptr;
  EXPECT_THAT(seen, UnorderedElementsAre("eth1", "eth2"));
  EXPECT_FALSE(clientAlive);
}

TEST_F(LinkageTest, TheUsageMapHasASaltOfItsOwn) {
  EXPECT_EQ(Linkage::kEntryUsageSmSalt, 0x94914ce4U);
  const std::set<std::uint32_t> salts{0xaead84daU, 0x1f3dfcebU, 0x4554b525U, 0x525a0dd4U,
                                      Linkage::kEntryUsageSmSalt};
  EXPECT_EQ(salts.size(), 5U);
}

// Request.

TEST_F(LinkageTest, ANullInterfaceIsNeverRequestedAndResolvesAsSuccessAtOnce) {
  const WrapperPtr entry = wrapper(5, "");
  linkage().resolveEntry(entry);
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_EQ(entry->intfIdResPtr(), nullptr);
  EXPECT_EQ(linkage().entryResolutionState(entry), EntryState::done);
  EXPECT_THAT(linkage().getNeededEntrySet(entry)->tableVersions(), IsEmpty());
}

TEST_F(LinkageTest, ANullWrapperNeedsNoResource) {
  linkage().resolveEntry(nullptr);
  linkage().setResourceHandle(nullptr);
  EXPECT_THAT(client().requests, IsEmpty());
  EXPECT_EQ(linkage().entryResolutionState(nullptr), EntryState::done);
  EXPECT_THAT(linkage().getNeededEntrySet(nullptr)->tableVersions(), IsEmpty());
}

TEST_F(LinkageTest, ResolvingRequestsTheInterfaceWithANullDependencyAndStoresTheHandle) {
  const WrapperPtr entry = wrapper(5);
  linkage().resolveEntry(entry);
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth1")));
  EXPECT_THAT(client().requestDependencies, ElementsAre(nullptr));
  EXPECT_EQ(entry->intfIdResPtr(), handle());
}

TEST_F(LinkageTest, ResolvingAgainReplacesTheHandleWithWhateverIsAnswered) {
  const WrapperPtr entry = wrapper(5);
  linkage().resolveEntry(entry);
  const std::uint32_t references = handle()->references();
  linkage().resolveEntry(entry);
  EXPECT_EQ(handle()->references(), references) << "the same handle is held once";
  client().answersNull = true;
  linkage().resolveEntry(entry);
  EXPECT_EQ(entry->intfIdResPtr(), nullptr);
}

TEST_F(LinkageTest, TwoEntriesOfOneInterfaceRequestOnceEach) {
  linkage().resolveEntry(wrapper(5));
  linkage().resolveEntry(wrapper(6));
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth1"), resKey("eth1")));
}

TEST_F(LinkageTest, TheHandleOfAnInterfaceThatNoEntryUsesYetIsLeftAsItIs) {
  const WrapperPtr entry = wrapper(5);
  linkage().setResourceHandle(entry);
  EXPECT_EQ(entry->intfIdResPtr(), nullptr);
  entry->intfIdResPtrIs(handle("eth2"));
  linkage().setResourceHandle(entry);
  EXPECT_EQ(entry->intfIdResPtr(), handle("eth2"));
}

TEST_F(LinkageTest, TheHandleInUseIsTakenWithoutAskingTheResourceTable) {
  linkage().entryUsageSmIs(handle());
  const WrapperPtr entry = wrapper(5);
  linkage().setResourceHandle(entry);
  EXPECT_EQ(entry->intfIdResPtr(), handle());
  EXPECT_THAT(client().requests, IsEmpty());
}

TEST_F(LinkageTest, TheHandleInUseMayBeNullAndIsTakenAllTheSame) {
  linkage().entryUsageSmIs(nullptr);  // filed under the null interface
  const WrapperPtr entry = wrapper(5, "");
  entry->intfIdResPtrIs(handle());
  linkage().setResourceHandle(entry);
  EXPECT_EQ(entry->intfIdResPtr(), nullptr);
}

TEST_F(LinkageTest, SetRsrcPtrsRequestsWithRefreshAndTakesWhatIsHeldWithout) {
  const TraceRecorder recorder({"FecTableSwTable"});
  const WrapperPtr entry = wrapper(5);
  table().setRsrcPtrs(entry, false);
  EXPECT_EQ(entry->intfIdResPtr(), nullptr);
  EXPECT_THAT(client().requests, IsEmpty());
  table().setRsrcPtrs(entry, true);
  EXPECT_EQ(entry->intfIdResPtr(), handle());
  EXPECT_THAT(client().requests, ElementsAre(resKey("eth1")));
  EXPECT_THAT(recorder, HasTrace(8, "key: 5, refresh: false"));
  EXPECT_THAT(recorder, HasTrace(8, "key: 5, refresh: true"));
  EXPECT_EQ(recorder.textsOf("setRsrcPtrs").size(), 2U);
}

// Folding of the state.

struct Folding {
  EntryState handle;
  EntryState entry;
};

class FoldingTest : public LinkageFixture, public ::testing::WithParamInterface<Folding> {};

TEST_P(FoldingTest, TheStateOfTheHandleIsFoldedOntoThree) {
  EXPECT_EQ(linkage().entryResolutionState(wrapperInState(GetParam().handle)), GetParam().entry);
}

INSTANTIATE_TEST_SUITE_P(EveryState, FoldingTest,
                         ::testing::Values(Folding{EntryState(0), EntryState(0)},
                                           Folding{EntryState(1), EntryState(0)},
                                           Folding{EntryState(2), EntryState(5)},
                                           Folding{EntryState(3), EntryState(3)},
                                           Folding{EntryState(4), EntryState(5)},
                                           Folding{EntryState(5), EntryState(5)}));

TEST_F(LinkageTest, AHandleInState1LeavesTheEntryUnresolvedAndNotSuccessful) {
  EXPECT_EQ(linkage().entryResolutionState(wrapperInState(EntryState(1))), EntryState(0));
}

TEST_F(LinkageTest, AHandleInState2FailsTheEntryLikeOneInState4Or5) {
  for (const int state : {2, 4, 5}) {
    EXPECT_EQ(linkage().entryResolutionState(wrapperInState(EntryState(state))), EntryState(5))
        << state;
  }
}

TEST_F(LinkageDeathTest, AHandleInAStateOf6OrMoreStopsTheProcess) {
  for (const int state : {6, 7, 255}) {
    const WrapperPtr entry = wrapperInState(EntryState(state));
    EXPECT_DEATH(linkage().entryResolutionState(entry),
                 "assertion failed: false && \"Unhandled resHandle entryState\"\n");
    EXPECT_DEATH(linkage().checkCommitToLog(entry, false),
                 "assertion failed: false && \"Unhandled resHandle entryState\"\n");
  }
}

// Needed versions.

TEST_F(LinkageTest, TheNeededSetIsACopyOfTheHandlesOwn) {
  const WrapperPtr entry = wrapper(5);
  const auto own = neededSet({tableVersion(1, 11), tableVersion(2, 22)});
  handle()->contentsAre(EntryState::done, {1, 0, 0}, own);
  entry->intfIdResPtrIs(handle());
  const auto needed = linkage().getNeededEntrySet(entry);
  EXPECT_NE(needed, own);
  EXPECT_TRUE(needed->hasNotificationActive());
  EXPECT_THAT(needed->tableVersions(), ElementsAre(tableVersion(1, 11), tableVersion(2, 22)));
  needed->add(tableVersion(3, 33));
  EXPECT_EQ(own->tableVersions().size(), 2U);
  EXPECT_NE(linkage().getNeededEntrySet(entry), needed);
}

TEST_F(LinkageTest, AHandleWithoutASetNeedsNothing) {
  const WrapperPtr entry = wrapperInState(EntryState::done);
  EXPECT_THAT(linkage().getNeededEntrySet(entry)->tableVersions(), IsEmpty());
}

TEST_F(LinkageTest, EachNeededVersionIsTracedAtLevel9) {
  const WrapperPtr entry = wrapper(5);
  handle()->contentsAre(EntryState::done, {1, 0, 0},
                        neededSet({tableVersion(1, 11), tableVersion(2, 22)}));
  entry->intfIdResPtrIs(handle());
  const TraceRecorder recorder({kTrace});
  linkage().getNeededEntrySet(entry);
  EXPECT_EQ(recorder.texts(9),
            (Texts{"neededVersion: 03:01:0001@11", "neededVersion: 03:01:0002@22"}));
  const TraceRecorder::Record& first = recorder.records().front();
  EXPECT_EQ(first.file, "FecTableResourceTableLinkage");
  EXPECT_EQ(first.function, "getNeededEntrySet");
  EXPECT_EQ(first.className, "FecTableIntfIdToDestIdLinkage");
}

TEST_F(LinkageTest, NothingIsFormattedWhileTheHandlesLevelsAreOff) {
  const TraceRecorder recorder({kTrace}, 0);
  commitOn("eth1", {1});
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_THAT(recorder.texts(), IsEmpty());
}

}  // namespace
