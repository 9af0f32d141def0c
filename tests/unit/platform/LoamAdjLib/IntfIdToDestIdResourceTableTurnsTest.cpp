// SPDX-License-Identifier: Apache-2.0

// How changes are spread over turns, what a report costs, and which changes wait for room in the
// group's log.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResourceTableFixture.h"
#include "Zev/WorkMeter.h"

namespace {

using namespace resource_table_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Names = std::vector<std::string>;

class TurnsTest : public ResourceTableTest {
 protected:
  // A subscriber of the handle that notes its name when it is told, and touches that many rows.
  void subscribe(const HandlePtr& handle, const std::string& name, std::uint64_t rows,
                 std::function<void()> then = {}) {
    subscribers_.push_back(std::make_unique<Pell::Subscriber>(
        [this, name, rows, then = std::move(then)](Pell::Publisher*, Pell::Subscriber*, short,
                                                   const void*, const void*) {
          told_.push_back(name);
          Zev::WorkMeter::add(rows);
          if (then) {
            then();
          }
        }));
    handle->publisher().subscriberAdd(*subscribers_.back());
  }
  // Runs until nothing is left to do: who was told in each turn that told anybody.
  std::vector<Names> turns() {
    std::vector<Names> all;
    while (loop_.runOne()) {
      if (!told_.empty()) {
        all.push_back(std::exchange(told_, {}));
      }
    }
    return all;
  }
  // Runs the turns up to the next one that tells somebody.
  Names nextTurn() {
    while (told_.empty() && loop_.runOne()) {
    }
    return std::exchange(told_, {});
  }
  static std::string name(std::uint32_t number) { return "eth" + std::to_string(number); }

  std::vector<std::unique_ptr<Pell::Subscriber>> subscribers_;
  Names told_;
};

constexpr std::uint64_t kAll = ResourceTable::kRowsPerTurn;

TEST_F(TurnsTest, SubscribersThatUseTheRowsUpHaveATurnEach) {
  for (const std::uint64_t rows : {kAll, kAll + 1}) {
    subscribers_.clear();
    for (const char* who : {"a", "b", "c"}) {
      subscribe(request(), who, rows);
    }
    table_->destinationIs(intf("eth1"), DestId{static_cast<std::uint32_t>(rows), 0, 0});
    EXPECT_THAT(turns(), ElementsAre(Names{"a"}, Names{"b"}, Names{"c"})) << rows;
  }
}

TEST_F(TurnsTest, SubscribersShareATurnWhileRowsAreLeft) {
  for (const char* who : {"a", "b", "c"}) {
    subscribe(request(), who, kAll - 1);
  }
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_THAT(turns(), ElementsAre(Names{"a", "b"}, Names{"c"}));
  subscribers_.clear();
  for (const char* who : {"d", "e", "f"}) {
    subscribe(request(), who, 0);
  }
  table_->destinationIs(intf("eth1"), kSecond);
  EXPECT_THAT(turns(), ElementsAre(Names{"d", "e", "f"}));
}

TEST_F(TurnsTest, HandlesThatChangeTogetherShareTurnsAsSubscribersDo) {
  for (const char* who : {"eth1", "eth2", "eth3", "eth4"}) {
    subscribe(request(who), who, kAll / 2);
    table_->destinationIs(intf(who), kFirst);
  }
  EXPECT_THAT(turns(), ElementsAre(Names{"eth1", "eth2"}, Names{"eth3", "eth4"}));
}

TEST_F(TurnsTest, ATurnTakesNoMoreThanItsSteps) {
  constexpr std::uint32_t kSteps = ResourceTable::kStepsPerTurn;
  for (const std::uint32_t handles : {kSteps - 1, kSteps, kSteps + 1}) {
    for (std::uint32_t i = 0; i < handles; ++i) {
      client_->release(request(name(i).c_str()), nullptr);  // one look at each
    }
    std::uint32_t turns = 0;
    while (loop_.runOne()) {
      ++turns;
    }
    EXPECT_EQ(turns, handles <= kSteps ? 1U : 2U) << handles;
  }
}

TEST_F(TurnsTest, ManyHandlesThatChangeTogetherAllChangeInBoundedTurns) {
  constexpr std::uint32_t kHandles = 5000;
  for (std::uint32_t i = 0; i < kHandles; ++i) {
    subscribe(request(name(i).c_str()), name(i), 8);
    table_->destinationIs(intf(name(i).c_str()), kFirst);
  }
  EXPECT_EQ(table_->waitingUpdates(), kHandles);
  std::uint64_t mostRows = 0;
  std::uint64_t before = Zev::WorkMeter::total();
  while (loop_.runOne()) {
    const std::uint64_t after = Zev::WorkMeter::total();
    mostRows = std::max(mostRows, after - std::exchange(before, after));
  }
  EXPECT_LT(mostRows, kAll + 8);
  EXPECT_EQ(told_.size(), kHandles);
  EXPECT_EQ(told_.back(), name(kHandles - 1)) << "in the order of the changes";
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

// While an update is being told.

TEST_F(TurnsTest, AHandleShowsWhatIsBeingToldAndItsNextChangeWaitsUntilAllHaveBeenTold) {
  const HandlePtr handle = request();
  std::vector<DestId> seen;
  for (const char* who : {"a", "b"}) {
    subscribe(handle, who, kAll, [&seen, handle] { seen.push_back(handle->destId()); });
  }
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_EQ(nextTurn(), Names{"a"});
  EXPECT_EQ(handle->destId(), kFirst);
  table_->destinationIs(intf("eth1"), kSecond);
  client_->ackUpdate(handle, 1, nullptr);
  EXPECT_EQ(nextTurn(), Names{"b"});
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  EXPECT_EQ(handle->updateNumber(), 1U);
  EXPECT_THAT(turns(), ElementsAre(Names{"a"}, Names{"b"}));
  EXPECT_THAT(seen, ElementsAre(kFirst, kFirst, kSecond, kSecond));
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

TEST_F(TurnsTest, AnUpdateThatIsBeingToldCountsAsWaiting) {
  const HandlePtr handle = request();
  subscribe(handle, "a", kAll);
  subscribe(handle, "b", kAll);
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  nextTurn();
  EXPECT_EQ(handle->destId(), kFirst);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  table_->destinationIs(intf("eth1"), kFirst);  // what is shown already
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  run();
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

TEST_F(TurnsTest, WhoSubscribesWhileAnUpdateIsToldIsNotToldAndWhoGoesIsNotEither) {
  const HandlePtr handle = request();
  for (const char* who : {"a", "b", "c"}) {
    subscribe(handle, who, kAll);
  }
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_EQ(nextTurn(), Names{"a"});
  subscribe(handle, "late", kAll);
  handle->publisher().subscriberRemove(*subscribers_[1]);
  EXPECT_THAT(turns(), ElementsAre(Names{"c"}));
}

TEST_F(TurnsTest, OtherHandlesWaitForTheUpdateThatIsBeingTold) {
  subscribe(request("eth1"), "a", kAll);
  subscribe(request("eth1"), "b", kAll);
  subscribe(request("eth2"), "c", kAll);
  table_->destinationIs(intf("eth1"), kFirst);
  table_->destinationIs(intf("eth2"), kFirst);
  EXPECT_EQ(nextTurn(), Names{"a"});
  EXPECT_EQ(request("eth2")->updateNumber(), 0U);
  EXPECT_THAT(turns(), ElementsAre(Names{"b"}, Names{"c"}));
}

TEST_F(TurnsTest, ATableThatGoesWhileAnUpdateIsToldTellsNobodyMore) {
  const HandlePtr handle = request();
  subscribe(handle, "a", kAll);
  subscribe(handle, "b", kAll);
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_EQ(nextTurn(), Names{"a"});
  client_ = nullptr;
  table_ = nullptr;
  EXPECT_THAT(turns(), IsEmpty());
  EXPECT_EQ(handle->destId(), kFirst);
}

TEST_F(TurnsTest, WhatWaitsInTheResolverIsLookedAtOnceAnUpdateHoweverManyTurnsThatTakes) {
  const auto entry = Zev::makeObject<AskedEntry>();
  resolver_->resolverQueueEnq(entry);
  for (const char* who : {"a", "b", "c"}) {
    subscribe(request(), who, kAll);
  }
  destinationIs("eth1", kFirst);
  EXPECT_EQ(entry->asked, 1);
}

// What throws.

TEST_F(TurnsTest, ASubscriberThatThrowsHoldsNobodyElseUpAndTheFirstExceptionGoesToTheLoop) {
  subscribe(request("eth1"), "a", 0, [] { throw std::runtime_error("a"); });
  subscribe(request("eth1"), "b", 0, [] { throw std::logic_error("b"); });
  subscribe(request("eth1"), "c", 0);
  subscribe(request("eth2"), "d", 0);
  table_->destinationIs(intf("eth1"), kFirst);
  table_->destinationIs(intf("eth2"), kFirst);
  EXPECT_THROW(run(), std::runtime_error);
  run();
  EXPECT_EQ(told_, (Names{"a", "b", "c", "d"}));
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

TEST_F(TurnsTest, WhatASubscriberThrowsEndsNoUpdateThatGoesOnInTheNextTurn) {
  subscribe(request(), "a", kAll, [] { throw std::runtime_error("a"); });
  subscribe(request(), "b", kAll);
  table_->destinationIs(intf("eth1"), kFirst);
  EXPECT_THROW(run(), std::runtime_error);
  EXPECT_EQ(std::exchange(told_, {}), Names{"a"});
  EXPECT_THAT(turns(), ElementsAre(Names{"b"}));
}

// What a report costs.

class ReportCostTest : public TurnsTest {
 protected:
  static constexpr std::uint32_t kWaiting = 1000;
  // Whatever waits, a report looks at the version that it brings, at what is lowest, and at what
  // it settles.
  static constexpr std::uint64_t kRowsOfAReport = 16;

  // Handle i shows the first destination and is to show the second one once version i + 1 is
  // applied.
  void waitingHandles() {
    for (std::uint32_t i = 0; i < kWaiting; ++i) {
      handles_.push_back(request(name(i).c_str()));
      table_->destinationIs(intf(name(i).c_str()), kFirst);
    }
    run();
    for (std::uint32_t i = 0; i < kWaiting; ++i) {
      client_->ackUpdate(handles_[i], 1, operation(i + 1));
      table_->destinationIs(intf(name(i).c_str()), kSecond);
    }
    run();
    ASSERT_EQ(table_->waitingUpdates(), kWaiting);
  }
  std::uint64_t rowsOfReport(std::uint64_t version, Asic::SwTableId tableId = kTable) {
    const std::uint64_t before = Zev::WorkMeter::total();
    applied(version, tableId);
    return Zev::WorkMeter::total() - before;
  }

  std::vector<HandlePtr> handles_;
};

TEST_F(ReportCostTest, IsWhatTheReportSettlesAndNotWhatWaits) {
  waitingHandles();
  for (const std::uint32_t version : {1U, 2U, 3U}) {
    EXPECT_LE(rowsOfReport(version), kRowsOfAReport) << version;
    EXPECT_EQ(table_->waitingUpdates(), kWaiting - version);
    EXPECT_EQ(handles_[version - 1]->destId(), kSecond);
    EXPECT_EQ(handles_[version]->destId(), kFirst);
  }
}

TEST_F(ReportCostTest, OfATableThatNothingWaitsForIsThatOfTheReportItself) {
  waitingHandles();
  EXPECT_LE(rowsOfReport(1, kOtherTable), kRowsOfAReport);
  groupLog_->tableVersionIs({kOtherTable, Asic::LogVersion(2)});
  EXPECT_EQ(loop_.pending(), 0U) << "no turn for nothing";
  EXPECT_EQ(table_->waitingUpdates(), kWaiting);
}

TEST_F(ReportCostTest, WhatOneReportSettlesIsLinearInItsNumberAndSpreadOverTurns) {
  waitingHandles();
  EXPECT_LE(rowsOfReport(kWaiting), kWaiting * kRowsOfAReport);
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

TEST_F(ReportCostTest, IsPaidOnceForDestinationsThatWaitToBeFreedToo) {
  for (std::uint32_t i = 0; i < kWaiting; ++i) {
    const HandlePtr handle = request(name(i).c_str());
    table_->destinationIs(intf(name(i).c_str()), kFirst);
    run();
    ack(handle);
    client_->release(handle, operation(i + 1));
    table_->destinationIs(intf(name(i).c_str()), kSecond);
    run();
  }
  EXPECT_THAT(freed_, IsEmpty());
  EXPECT_LE(rowsOfReport(1), kRowsOfAReport);
  EXPECT_EQ(freed_.size(), 1U);
  EXPECT_LE(rowsOfReport(3), 2 * kRowsOfAReport);
  EXPECT_EQ(freed_.size(), 3U);
}

// Room.

class RoomTest : public TurnsTest {
 protected:
  RoomTest() {
    client_->usersHandlerIs(
        [this](const ResourceTable::Key& asked) { return asked == key("eth1") ? users_ : 1U; });
  }
  // A handle that the client uses.
  HandlePtr used(const char* name) {
    HandlePtr handle = request(name);
    destinationIs(name, kFirst);
    ack(handle);
    return handle;
  }
  // As many rows as requests may have logged and some more.
  void fillLog(std::uint32_t more) {
    for (std::uint64_t version = 1; version <= Asic::GroupLogGlint::kCapacity + more; ++version) {
      groupLog_->addGroupLogEntry(kTable, Asic::LogVersion(version), nullptr);
    }
    ASSERT_EQ(groupLog_->redriveRoom(), room_ - more);
  }

  const std::uint32_t room_ = groupLog_->redriveRoom();  // of a log that is empty
  std::uint32_t users_ = 0;
};

TEST_F(RoomTest, AnUpdateThatFitsIsPublishedAndOneOfARowMoreIsNot) {
  const HandlePtr handle = used("eth1");
  users_ = room_;
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  ack(handle);
  users_ = room_ + 1;
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
  users_ = room_ - 1;
  ack(handle);  // looked at again
  EXPECT_EQ(handle->destId(), kThird);
  EXPECT_EQ(table_->waitingUpdates(), 0U);
}

TEST_F(RoomTest, AnUpdateWithoutRoomGoesOutWhenAReportHasMadeRoomAndNotBefore) {
  const HandlePtr handle = used("eth1");
  fillLog(2);
  users_ = room_;
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(1);
  EXPECT_EQ(groupLog_->redriveRoom(), room_ - 1);
  EXPECT_EQ(handle->destId(), kFirst);
  applied(2);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(RoomTest, TheFirstUpdateNeedsRoomToo) {
  const HandlePtr handle = request();
  ack(handle);
  users_ = room_ + 1;
  destinationIs("eth1", kFirst);
  EXPECT_EQ(handle->updateNumber(), 0U);
  users_ = room_;
  ack(handle);
  EXPECT_EQ(handle->destId(), kFirst);
}

TEST_F(RoomTest, TheUsersOfEveryClientCount) {
  const auto secondClient = table_->makeClientInstance();
  secondClient->usersHandlerIs([this](const ResourceTable::Key&) { return room_; });
  const HandlePtr handle = used("eth1");
  users_ = 1;
  secondClient->ackUpdate(handle, 1, nullptr);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  client_->release(handle, nullptr);
  run();
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(RoomTest, OperationsThatNeedMoreThanOneRowNamesTakeTheRowsThatTheyNeed) {
  const HandlePtr handle = used("eth1");
  const auto needing = [](std::uint32_t tables) {
    auto needed = Zev::makeObject<Asic::NeededEntry>();
    for (std::uint32_t i = 0; i < tables; ++i) {
      needed->add({Asic::SwTableId(0x04000000 + i), Asic::LogVersion(1)});
    }
    return needed;
  };
  const auto change = [&](const DestId& destination, std::uint32_t tables) {
    table_->destinationIs(key("eth1").intfId(), destination, needing(tables));
    run();
  };
  users_ = room_;
  change(kSecond, 8);
  EXPECT_EQ(handle->destId(), kSecond);
  ack(handle);
  users_ = room_ / 2 + 1;
  change(kThird, 9);
  EXPECT_EQ(handle->destId(), kSecond);
  users_ = room_ / 2;
  ack(handle);  // looked at again
  EXPECT_EQ(handle->destId(), kThird);
}

// Users may go without a word to the table.
TEST_F(RoomTest, AnUpdateThatCouldNeverFitIsLookedAtAgainWithEveryReport) {
  const HandlePtr handle = used("eth1");
  fillLog(0);
  users_ = room_ + 1;
  destinationIs("eth1", kSecond);
  applied(1);
  EXPECT_EQ(handle->destId(), kFirst);
  EXPECT_EQ(loop_.pending(), 0U) << "and is no reason for turns without end";
  users_ = 10;
  applied(2);
  EXPECT_EQ(handle->destId(), kSecond);
}

TEST_F(RoomTest, AnUpdateWithoutRoomHoldsNoOtherInterfaceBack) {
  used("eth1");
  const HandlePtr other = used("eth2");
  users_ = room_ + 1;
  destinationIs("eth1", kSecond);
  destinationIs("eth2", kSecond);
  EXPECT_EQ(other->destId(), kSecond);
  EXPECT_EQ(table_->waitingUpdates(), 1U);
}

TEST_F(RoomTest, AnUpdateThatIsTakenBackWhileItHasNoRoomIsForgotten) {
  const HandlePtr handle = used("eth1");
  fillLog(1);
  users_ = room_;
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kFirst);
  destinationIs("eth1", kFirst);
  EXPECT_EQ(table_->waitingUpdates(), 0U);
  applied(1);
  EXPECT_EQ(handle->updateNumber(), 1U);
}

TEST_F(RoomTest, AClientWithoutAHandlerCountsAsNoUsers) {
  const auto secondClient = table_->makeClientInstance();
  EXPECT_EQ(secondClient->users(key("eth1")), 0U);
  client_->usersHandlerIs(nullptr);
  EXPECT_EQ(client_->users(key("eth1")), 0U);
}

// A client that has ended.

TEST_F(RoomTest, AClientThatHasEndedIsNotWaitedForAndItsAcknowledgementsCountForNothing) {
  const auto ended = table_->makeClientInstance();
  const HandlePtr handle = used("eth1");
  ended->ackUpdate(handle, 1, nullptr);
  ended->usersHandlerIs([this](const ResourceTable::Key&) { return room_ + 1; });
  ended->end();
  EXPECT_EQ(ended->users(key("eth1")), 0U);
  ended->ackUpdate(handle, 1, nullptr);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  ack(handle);
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kThird) << "the ended client has not acknowledged the one before";
}

}  // namespace
