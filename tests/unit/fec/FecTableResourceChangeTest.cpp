// SPDX-License-Identifier: Apache-2.0

// The commit-to-log check, what a changed resource sets off, and the road from a change of a
// destination to the hardware and back.

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "LinkageFixture.h"
#include "Zev/WorkMeter.h"
#include "records/FecTableConstants.h"
#include "testing/Interfaces.h"

namespace {

using namespace fec_test;
using testing_support::intf;

// Helper that notes what it is told, and decides as a test says.
class NotingHelper : public LoamFec::FecTableSwTableHelperBase {
 public:
  struct Note {
    std::string hook;
    bool isDelete;
    Asic::LogVersion logVersion;
    friend bool operator==(const Note&, const Note&) = default;
  };

  void finalizeOnSuccess(Pell::Ptr<LoamFec::FecTableEntryWrapper> const& entry,
                         bool isDelete) override {
    notes.push_back({"success", isDelete, entry->entryHandle()->logVersion()});
  }
  bool finalizeOnFailure(Pell::Ptr<LoamFec::FecTableEntryWrapper> const& entry, bool isDelete,
                         Pell::Ptr<LoamFec::FecTableSwTable> const& swTable) override {
    EXPECT_TRUE(swTable);
    notes.push_back({"failure", isDelete, entry->entryHandle()->logVersion()});
    return answer;
  }

  std::vector<Note> notes;
  bool answer = false;
};

class CommitCheckTest : public LinkageFixture {
 protected:
  using Note = NotingHelper::Note;
  CommitCheckTest() { table().swTableHelperIs(helper_); }
  Pell::Ptr<NotingHelper> helper_ = Zev::makeObject<NotingHelper>();
};
using CommitCheckDeathTest = CommitCheckTest;

TEST_F(CommitCheckTest, AnEntryOnTheNullInterfaceMayBeLoggedByWayOfTheSuccessHook) {
  EXPECT_TRUE(linkage().checkCommitToLog(wrapper(5, ""), false));
  EXPECT_THAT(helper_->notes, ElementsAre(Note{"success", false, {}}));
}

TEST_F(CommitCheckTest, AResolvedResourceMayBeLoggedByWayOfTheSuccessHook) {
  const WrapperPtr entry = wrapperInState(EntryState::done);
  EXPECT_TRUE(linkage().checkCommitToLog(entry, false));
  EXPECT_THAT(helper_->notes, ElementsAre(Note{"success", false, {}}));
  EXPECT_EQ(entry->entry().resolvedDest.first, 100U);
}

TEST_F(CommitCheckTest, AFailedResourceIsWhatTheFailureHookAnswers) {
  for (const EntryState state : {EntryState(2), EntryState(4), EntryState(5)}) {
    for (const bool answer : {false, true}) {
      helper_->notes.clear();
      helper_->answer = answer;
      EXPECT_EQ(linkage().checkCommitToLog(wrapperInState(state), false), answer) << state;
      EXPECT_THAT(helper_->notes, ElementsAre(Note{"failure", false, {}}));
    }
  }
}

TEST_F(CommitCheckTest, WhetherItIsADeleteIsOnlyPassedOn) {
  EXPECT_TRUE(linkage().checkCommitToLog(wrapperInState(EntryState::done), true));
  EXPECT_FALSE(linkage().checkCommitToLog(wrapperInState(EntryState::resourceFailed), true));
  EXPECT_THAT(helper_->notes, ElementsAre(Note{"success", true, {}}, Note{"failure", true, {}}));
}

TEST_F(CommitCheckTest, TheHooksOfACommitRunBeforeItsLogVersionExists) {
  handle()->contentsAre(EntryState::done, {100, 0, 0});
  const Handle written = write(1, "eth1");
  agent_.run();
  EXPECT_EQ(written->logVersion(), Asic::LogVersion(1));
  EXPECT_THAT(helper_->notes, ElementsAre(Note{"success", false, Asic::LogVersion(0)}));
}

TEST_F(CommitCheckTest, TheCheckIsTracedAtLevel8WithTheFoldedState) {
  const TraceRecorder recorder({kTrace});
  linkage().checkCommitToLog(wrapperInState(EntryState(2)), false);
  linkage().checkCommitToLog(wrapperInState(EntryState::done), true);
  EXPECT_EQ(recorder.textsOf("checkCommitToLog"),
            (Texts{" Entry: 5, isDeleted:false, resourceState: 5",
                   " Entry: 5, isDeleted:true, resourceState: 3"}));
  EXPECT_EQ(recorder.texts(8).size(), 2U);
}

TEST_F(CommitCheckDeathTest, AnUnresolvedResourceAtCommitStopsTheProcess) {
  for (const EntryState state : {EntryState(0), EntryState(1)}) {
    const WrapperPtr entry = wrapperInState(state);
    EXPECT_DEATH(linkage().checkCommitToLog(entry, false),
                 "assertion failed: resState == Asic::SwTableBase::success\\(\\): "
                 "Invalid resState: 0\n");
  }
}

// A changed resource.

class ResourceChangeTest : public LinkageFixture {
 protected:
  void SetUp() override { client().acks.clear(); }
  const RecordingResourceClient::Ack& onlyAck() {
    EXPECT_EQ(client().acks.size(), 1U);
    return client().acks.back();
  }
  static std::uint64_t versionOf(const ResourceTable::Dependency& dependency) {
    return dependency->entryTableVersion().logVersion().value();
  }
  // Commits the users and forgets what that told the resource table.
  void committedUsers(std::initializer_list<std::uint32_t> fecIds) {
    commitOn("eth1", fecIds);
    client().acks.clear();
  }
  // Runs the reaction inside the next announcement to the group log.
  void onNextAnnouncement(std::function<void()> reaction) {
    auto& publisher = agent_.group()->groupLog()->publisher();
    announced_.emplace([this, &publisher, reaction = std::move(reaction)](
                           Pell::Publisher*, Pell::Subscriber*, short, const void*, const void*) {
      publisher.subscriberRemove(*announced_);
      reaction();
    });
    publisher.subscriberAdd(*announced_);
  }
  void dropTable() {
    const Asic::UnitId unit(0);
    agent_.fec().swTableDel(unit);
    agent_.group()->swTableSet(FecTableConstants::kTableId)->swTableDel(unit);
  }

  std::optional<Pell::Subscriber> announced_;
};

TEST_F(ResourceChangeTest, EveryUserIsDrivenAgainAndTheChangeAcknowledgedOnceWithTheLastHandle) {
  committedUsers({1, 2, 3});
  const TraceRecorder recorder({kTrace, "FecTableSwTable"});
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(logVersion(), 6U);
  for (const std::uint32_t user : {1U, 2U, 3U}) {
    EXPECT_EQ(table().entryRead(key(user)).resolvedDest.first, 101U);
  }
  EXPECT_EQ(onlyAck().key, resKey("eth1"));
  EXPECT_EQ(onlyAck().updateNumber, 2U);
  EXPECT_EQ(versionOf(onlyAck().dependency), 6U);
  EXPECT_EQ(recorder.texts(3).size(), 6U) << "one of the linkage and one of updateEntry an entry";
  EXPECT_EQ(recorder.count(3, "Updating sw table entry for key: "), 3U);
}

TEST_F(ResourceChangeTest, TheAcknowledgementComesAfterTheLastUserAndNeverBefore) {
  committedUsers({1, 2});
  std::size_t acksWhenAnnounced = 99;
  onNextAnnouncement(
      [&] { onNextAnnouncement([&] { acksWhenAnnounced = client().acks.size(); }); });
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(acksWhenAnnounced, 0U);
  EXPECT_EQ(client().acks.size(), 1U);
}

TEST_F(ResourceChangeTest, AChangeIsTracedWithTheNameOfItsStepAlone) {
  committedUsers({1});
  const TraceRecorder recorder({kTrace});
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_THAT(recorder, HasTrace(8, ""));
  EXPECT_EQ(recorder.textsOf("handleResourceChange"),
            (Texts{"", "Updating sw table entry for key: "}));
}

TEST_F(ResourceChangeTest, UsersThatAreNoLongerInTheLogAcknowledgeWithANullDependency) {
  committedUsers({1, 2, 3});
  table().clearTable(false);
  const std::uint64_t version = logVersion();
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(onlyAck().dependency, nullptr);
  EXPECT_EQ(logVersion(), version);
}

TEST_F(ResourceChangeTest, TheLastHandleThatIsNotNullIsTheDependency) {
  committedUsers({1, 2});
  record()->entryUsageIs(key(99));  // not in the log
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U, 2U, 99U));
  resourceChanges("eth1", EntryState::done, 101);
  ASSERT_TRUE(onlyAck().dependency);
  EXPECT_EQ(versionOf(onlyAck().dependency), 4U);
}

TEST_F(ResourceChangeTest, UsersWhoseLoggedFormStaysAreTheDependencyAtTheLogsVersion) {
  committedUsers({1, 2});
  writeCommitted(9);
  client().acks.clear();
  resourceChanges("eth1", EntryState::done, 100);
  EXPECT_EQ(logVersion(), 3U);
  ASSERT_TRUE(onlyAck().dependency);
  EXPECT_EQ(versionOf(onlyAck().dependency), 3U);
  EXPECT_EQ(onlyAck().dependency->entryState(), EntryState::hwWritePending);
}

TEST_F(ResourceChangeTest, ARecordWithoutUsersAcknowledgesAllTheSame) {
  committedUsers({1});
  record()->entryUsageDelAll();
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(onlyAck().updateNumber, 2U);
  EXPECT_EQ(onlyAck().dependency, nullptr);
}

TEST_F(ResourceChangeTest, AnUnresolvedResourceLeavesItsUsersAsTheyAreLogged) {
  committedUsers({1});
  resourceChanges("eth1", EntryState::notResolved, 0xFFFF);
  EXPECT_EQ(logVersion(), 1U);
  EXPECT_EQ(table().entryRead(key(1)).resolvedDest.first, 100U);
  EXPECT_TRUE(onlyAck().dependency);
  resourceChanges("eth1", EntryState::done, 102);
  EXPECT_EQ(table().entryRead(key(1)).resolvedDest.first, 102U);
  EXPECT_EQ(resolver().resolverQueueLength(), 0U) << "nothing waits in the resolver";
}

TEST_F(ResourceChangeTest, AFailedResourceLogsItsUsersWithoutAskingTheHelper) {
  const auto helper = Zev::makeObject<NotingHelper>();
  committedUsers({1});
  table().swTableHelperIs(helper);
  resourceChanges("eth1", EntryState::resourceFailed, 0xFFFF);
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(table().entryRead(key(1)).resolvedDest.first, 0xFFFFU);
  EXPECT_THAT(helper->notes, IsEmpty());
}

// An observer of the log has no business throwing; a log without room has.
TEST_F(ResourceChangeTest,
       AnEntryThatCannotBeDrivenKeepsNeitherTheOthersNorTheAcknowledgementBack) {
  committedUsers({1, 2, 3});
  client().acks.clear();
  int changes = 0;
  Pell::Subscriber throwing([&changes](auto...) {
    if (++changes == 1) {
      throw std::runtime_error("of the first");
    }
  });
  const auto groupLog = agent_.group()->groupLog();
  groupLog->publisher().subscriberAdd(throwing);
  std::string thrown;
  try {
    resourceChanges("eth1", EntryState::done, 77);
  } catch (const std::runtime_error& error) {
    thrown = error.what();
  }
  groupLog->publisher().subscriberRemove(throwing);
  EXPECT_EQ(thrown, "of the first");
  EXPECT_EQ(logVersion(), 6U) << "all three were logged";
  ASSERT_THAT(client().acks, SizeIs(1));
  EXPECT_EQ(client().acks[0].dependency->entryTableVersion().logVersion(), LogVersion(6));
}

TEST_F(ResourceChangeTest, AtInitEveryRecordIsHandledAsChangedOnce) {
  committedUsers({1, 2});
  commitOn("eth2", {3});
  client().acks.clear();
  linkage().handleResourceChangeAtInit();
  ASSERT_EQ(client().acks.size(), 2U);
  EXPECT_NE(client().acks[0].key, client().acks[1].key);
}

TEST_F(ResourceChangeTest, AtInitWithoutRecordsThereIsNothingToDo) {
  const TraceRecorder recorder({kTrace});
  linkage().handleResourceChangeAtInit();
  EXPECT_THAT(client().acks, IsEmpty());
  EXPECT_THAT(recorder.texts(), IsEmpty());
}

TEST_F(ResourceChangeTest, RestoringAnEntryFilesItsUsageAndAcknowledgesNothing) {
  for (const std::uint32_t fecId : {1U, 2U}) {
    const WrapperPtr entry = wrapper(fecId);
    entry->intfIdResPtrIs(handle());
    linkage().restoreEntry(entry);
  }
  EXPECT_THAT(usersOf("eth1"), ElementsAre(1U, 2U));
  EXPECT_EQ(linkage().entryUsageSms(), 1U);
  EXPECT_THAT(client().acks, IsEmpty());
}

TEST_F(ResourceChangeTest, RestoringAnEntryOnTheNullInterfaceCreatesNoRecord) {
  const TraceRecorder recorder({kTrace});
  linkage().restoreEntry(wrapper(1, ""));
  linkage().restoreEntry(nullptr);
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_THAT(recorder.texts(), IsEmpty());
}

// Re-entrancy: what the change drives again calls back into the linkage.

TEST_F(ResourceChangeTest, AUserThatLeavesDuringTheChangeIsNotDrivenAndOthersAre) {
  committedUsers({1, 2, 3});
  onNextAnnouncement([&] { record()->entryUsageDel(key(2)); });
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(table().entryRead(key(1)).resolvedDest.first, 101U);
  EXPECT_EQ(table().entryRead(key(2)).resolvedDest.first, 100U);
  EXPECT_EQ(table().entryRead(key(3)).resolvedDest.first, 101U);
  EXPECT_EQ(client().acks.size(), 1U);
}

TEST_F(ResourceChangeTest, ARecordThatIsRemovedDuringItsOwnChangeIsHandledToItsEnd) {
  committedUsers({1, 2});
  onNextAnnouncement([&] { linkage().entryUsageSmDel(resKey("eth1")); });
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(record(), nullptr);
  EXPECT_EQ(onlyAck().key, resKey("eth1"));
  EXPECT_TRUE(handle()->publisher().idle());
}

TEST_F(ResourceChangeTest, RecordsThatGoWhileAllAreHandledAtInitDoNoHarm) {
  committedUsers({1});
  commitOn("eth2", {2});
  client().acks.clear();
  handle("eth1")->contentsAre(EntryState::done, {101, 0, 0});
  handle("eth2")->contentsAre(EntryState::done, {201, 0, 0});
  onNextAnnouncement([&] { linkage().entryUsageSmDelAll(); });
  linkage().handleResourceChangeAtInit();
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  EXPECT_EQ(client().acks.size(), 1U) << "the one under way";
}

TEST_F(ResourceChangeTest, TheLastReferenceToTheTableMayGoDuringAChange) {
  committedUsers({1, 2});
  const auto kept = handle();
  onNextAnnouncement([&] { dropTable(); });
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(onlyAck().updateNumber, 2U);
  EXPECT_TRUE(kept->publisher().idle()) << "table, linkage and record are gone";
  EXPECT_EQ(agent_.fec().swTable(Asic::UnitId(0)), nullptr);
}

TEST_F(ResourceChangeTest, ARequestMadeDuringAChangeWaitsForItsOwnTurn) {
  committedUsers({1});
  onNextAnnouncement([&] { write(1, "", 77); });
  resourceChanges("eth1", EntryState::done, 101);
  EXPECT_EQ(logVersion(), 2U);
  EXPECT_EQ(resolver().resolverQueueLength(), 1U);
  agent_.run();
  EXPECT_EQ(committedMark(1), 77U);
  EXPECT_EQ(client().releases.size(), 1U);
}

// The whole road, over the platform's resource table.

class WholeRoadTest : public LinkageFixture {
 protected:
  WholeRoadTest() : LinkageFixture(FecHarness::Resources::real) {
    agent_.resources().freedHandlerIs([this](Wirex::IntfId, const LoamAdjLib::DestId& destId) {
      freed_.push_back(destId.first);
    });
  }
  std::uint32_t destinationOf(std::uint32_t fecId) {
    return table().entryRead(key(fecId)).resolvedDest.first;
  }
  void report(std::uint64_t version) {
    agent_.report(version);
    agent_.run();
  }

  std::vector<std::uint32_t> freed_;
};

TEST_F(WholeRoadTest, AQueuedWriteIsWokenWhenItsInterfaceGetsADestination) {
  write(1, "eth1");
  write(2, "eth2");
  agent_.run();
  EXPECT_EQ(logVersion(), 0U);
  agent_.destinationIs("eth1", 100);
  EXPECT_TRUE(committed(1));
  EXPECT_FALSE(committed(2));
  agent_.destinationIs("eth2", 200);
  EXPECT_TRUE(committed(2));
}

TEST_F(WholeRoadTest, AQueuedWriteIsWokenAndFailsWhenItsInterfaceFails) {
  write(1, "eth1");
  agent_.run();
  agent_.resources().destinationFailed(intf("eth1"));
  agent_.run();
  ASSERT_EQ(responses().size(), 1U);
  EXPECT_EQ(responses()[0].state, EntryState::commitFailed);
}

TEST_F(WholeRoadTest, AQueuedWriteIsWokenWhenItsDependencyIsResolved) {
  const auto waitsFor = dependency(EntryState::notResolved);
  write(1, "", 0, waitsFor);
  agent_.run();
  EXPECT_FALSE(committed(1));
  waitsFor->stateIs(EntryState::hwWritePending);
  EXPECT_FALSE(committed(1)) << "in a turn of its own";
  agent_.run();
  EXPECT_TRUE(committed(1));
}

TEST_F(WholeRoadTest, AFlappingInterfaceDoesNotFloodTheLog) {
  agent_.destinationIs("eth1", 100);
  write(1, "eth1");
  write(2, "eth1");
  agent_.run();
  for (std::uint32_t flap = 0; flap < 100; ++flap) {
    agent_.destinationIs("eth1", 200 + flap);
    agent_.resources().destinationDel(intf("eth1"));
    agent_.run();
  }
  agent_.destinationIs("eth1", 999);
  EXPECT_EQ(logVersion(), 4U) << "two writes and one re-drive of each";
  EXPECT_EQ(agent_.resources().waitingUpdates(), 1U);
  report(3);
  EXPECT_EQ(logVersion(), 4U);
  report(4);
  EXPECT_EQ(logVersion(), 6U);
  EXPECT_EQ(destinationOf(1), 999U);
  EXPECT_EQ(destinationOf(2), 999U);
}

TEST_F(WholeRoadTest, AnOldDestinationIsFreedWhenEveryEntryOfItHasBeenAppliedWithTheNewOne) {
  agent_.destinationIs("eth1", 100);
  write(1, "eth1");
  write(2, "eth1");
  agent_.run();
  report(2);
  agent_.destinationIs("eth1", 101);
  EXPECT_EQ(logVersion(), 4U);
  report(3);
  EXPECT_THAT(freed_, IsEmpty()) << "entry 2 still has the old one in hardware";
  report(4);
  EXPECT_THAT(freed_, ElementsAre(100U));
}

TEST_F(WholeRoadTest, ADeletedDestinationIsKeptForTheEntriesThatStillUseIt) {
  agent_.destinationIs("eth1", 100);
  write(1, "eth1");
  agent_.run();
  report(1);
  agent_.resources().destinationDel(intf("eth1"));
  agent_.run();
  EXPECT_EQ(destinationOf(1), 100U);
  EXPECT_THAT(freed_, IsEmpty());
  remove(1);
  agent_.run();
  EXPECT_THAT(freed_, IsEmpty());
  report(2);
  EXPECT_THAT(freed_, ElementsAre(100U));
}

TEST_F(WholeRoadTest, ARewriteToAnotherInterfaceFreesWhenTheHardwareHasTakenIt) {
  agent_.destinationIs("eth1", 100);
  agent_.destinationIs("eth2", 200);
  write(1, "eth1");
  agent_.run();
  report(1);
  write(1, "eth2");
  agent_.run();
  agent_.resources().destinationDel(intf("eth1"));
  agent_.run();
  EXPECT_THAT(freed_, IsEmpty());
  report(2);
  EXPECT_THAT(freed_, ElementsAre(100U));
}

TEST_F(WholeRoadTest, ARemoveAllReleasesWithoutAVersionAndHoldsNothingBackForEver) {
  agent_.destinationIs("eth1", 100);
  write(1, "eth1");
  agent_.run();
  report(1);
  removeAll();
  agent_.run();
  EXPECT_EQ(linkage().entryUsageSms(), 0U);
  agent_.destinationIs("eth1", 101);
  EXPECT_EQ(agent_.resources().waitingUpdates(), 0U);
}

TEST_F(WholeRoadTest, TheTableMayGoWhileItUsesADestinationAndTheNextChangeStillGoesOut) {
  agent_.destinationIs("eth1", 100);
  write(1, "eth1");
  agent_.run();
  agent_.destinationIs("eth1", 101);  // acknowledged with version 2
  const auto resources = Pell::Ptr<ResourceTable>(&agent_.resources());
  const auto other = resources->makeClientInstance();
  const auto handle = other->request(resKey("eth1"), nullptr);
  agent_.fec().swTableDel(Asic::UnitId(0));
  agent_.group()->swTableSet(FecTableConstants::kTableId)->swTableDel(Asic::UnitId(0));
  agent_.destinationIs("eth1", 102);
  EXPECT_EQ(handle->destId().first, 101U) << "version 2 is still to be applied";
  report(2);
  EXPECT_EQ(handle->destId().first, 102U);
}

TEST_F(WholeRoadTest, AnInterfaceWhoseOnlyUserComesAndGoesStillFails) {
  agent_.destinationIs("eth1", 100);
  agent_.destinationIs("eth2", 200);
  const auto writeAndReport = [&](const char* intf) {
    write(1, intf);
    agent_.run();
    report(logVersion() - 1);  // the hardware is one version behind
  };
  write(1, "eth1");
  agent_.run();
  for (int round = 0; round < 10; ++round) {
    writeAndReport("eth2");
    writeAndReport("eth1");
  }
  agent_.resources().destinationFailed(intf("eth1"));
  agent_.run();
  EXPECT_EQ(agent_.resources().waitingUpdates(), 0U);
  EXPECT_EQ(destinationOf(1), 0xFFFFU);
  const std::size_t answered = responses().size();
  write(2, "eth1");
  agent_.run();
  ASSERT_EQ(responses().size(), answered + 1);
  EXPECT_EQ(responses().back().state, EntryState::commitFailed);
  EXPECT_THAT(freed_, IsEmpty());
  writeAndReport("eth2");
  EXPECT_THAT(freed_, ElementsAre(100U)) << "the hardware has left it, whatever is still to come";
}

TEST_F(WholeRoadTest, AnInterfaceFailsThoughTheHardwareHasNotTakenThatItsOnlyUserLeftIt) {
  agent_.destinationIs("eth1", 100);
  agent_.destinationIs("eth2", 200);
  for (const char* intf : {"eth1", "eth2", "eth1"}) {
    write(1, intf);
    agent_.run();
  }
  report(1);  // 2 left eth1, and 3 came back to it
  agent_.resources().destinationFailed(intf("eth1"));
  agent_.run();
  EXPECT_EQ(agent_.resources().waitingUpdates(), 0U);
  EXPECT_EQ(destinationOf(1), 0xFFFFU);
}

TEST_F(WholeRoadTest, TheResourceTableLearnsHowManyEntriesUseAnInterface) {
  agent_.destinationIs("eth1", 100);
  for (const std::uint32_t fecId : {1U, 2U, 3U}) {
    write(fecId, "eth1");
  }
  agent_.run();
  const auto client = linkage().resTblClient();
  EXPECT_EQ(client->users(resKey("eth1")), 3U);
  EXPECT_EQ(client->users(resKey("eth2")), 0U);
  remove(2);
  agent_.run();
  EXPECT_EQ(client->users(resKey("eth1")), 2U);
  agent_.fec().swTableDel(Asic::UnitId(0));
  agent_.group()->swTableSet(FecTableConstants::kTableId)->swTableDel(Asic::UnitId(0));
  EXPECT_EQ(client->users(resKey("eth1")), 0U) << "the linkage has gone, the client has not";
}

TEST_F(WholeRoadTest, EachUnitIsDrivenAgainInATurnOfItsOwnAndRequestsRunInBetween) {
  constexpr std::uint16_t kUnits = 4;
  constexpr std::uint32_t kEntries = 1000;
  agent_.destinationIs("eth1", 100);
  for (std::uint16_t unit = 0; unit < kUnits; ++unit) {
    for (std::uint32_t fecId = 1; fecId <= kEntries; ++fecId) {
      agent_.table(unit).entryWrite(key(fecId), FecHarness::entry("eth1"), nullptr);
    }
  }
  agent_.run();
  agent_.reportAll();
  agent_.run();
  agent_.resources().destinationIs(intf("eth1"), {101, 0, 0});
  std::vector<std::uint64_t> loggedATurn;
  std::uint64_t before = logVersion();
  const std::uint64_t start = before;
  while (agent_.loop().runOne()) {
    if (const std::uint64_t logged = logVersion() - std::exchange(before, logVersion())) {
      loggedATurn.push_back(logged);
      if (loggedATurn.size() == 1) {
        write(kEntries + 1, "");
      }
    }
  }
  EXPECT_THAT(loggedATurn, ElementsAre(kEntries, 1U, kEntries, kEntries, kEntries))
      << "the request is committed while three units wait";
  EXPECT_EQ(logVersion() - start, kUnits * kEntries + 1);
  EXPECT_EQ(agent_.resources().waitingUpdates(), 0U);
}

TEST_F(WholeRoadTest, ManyInterfacesThatChangeTogetherAreDrivenAgainInTurnsOfBoundedWork) {
  constexpr std::uint32_t kInterfaces = 2000;
  constexpr std::uint64_t kRowsOfOne = 32;
  const auto name = [](std::uint32_t number) { return "eth" + std::to_string(number); };
  for (std::uint32_t number = 1; number <= kInterfaces; ++number) {
    agent_.resources().destinationIs(Wirex::IntfId::fromName(name(number)), {100, 0, 0});
    write(number, name(number));
  }
  agent_.run();
  agent_.reportAll();
  agent_.run();
  const std::uint64_t start = logVersion();
  for (std::uint32_t number = 1; number <= kInterfaces; ++number) {
    agent_.resources().destinationIs(Wirex::IntfId::fromName(name(number)), {101, 0, 0});
  }
  std::uint64_t mostRows = 0;
  std::uint64_t before = Zev::WorkMeter::total();
  while (agent_.loop().runOne()) {
    const std::uint64_t after = Zev::WorkMeter::total();
    mostRows = std::max(mostRows, after - std::exchange(before, after));
  }
  EXPECT_EQ(logVersion() - start, kInterfaces);
  EXPECT_LT(mostRows, ResourceTable::kRowsPerTurn + kRowsOfOne);
  EXPECT_EQ(destinationOf(1), 101U);
  EXPECT_EQ(destinationOf(kInterfaces), 101U);
}

TEST_F(WholeRoadTest, ADestinationsOwnNeededVersionsAreLoggedWithItsEntries) {
  const auto needs = neededSet({tableVersion(0x0806, 7)});
  agent_.resources().destinationIs(intf("eth1"), {100, 0, 0}, needs);
  agent_.run();
  write(1, "eth1");
  agent_.run();
  const TraceRecorder recorder({"FecTableEntryLog"});
  agent_.resources().destinationIs(intf("eth1"), {101, 0, 0}, needs);
  agent_.run();
  ASSERT_EQ(recorder.textsOf("entryIs").size(), 1U);
  EXPECT_THAT(recorder.textsOf("entryIs")[0],
              ::testing::HasSubstr("neededEntry: {03:01:0806@7} version: 2"));
}

}  // namespace
