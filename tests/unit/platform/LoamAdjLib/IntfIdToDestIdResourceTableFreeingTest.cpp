// SPDX-License-Identifier: Apache-2.0

// When a destination that has been replaced is reported free.

#include <cstdint>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResourceTableFixture.h"
#include "Zev/WorkMeter.h"

namespace {

using namespace resource_table_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class FreeingTest : public ResourceTableTest {
 protected:
  Freed eth1(const DestId& destination) const { return {intf("eth1"), destination}; }
};

TEST_F(FreeingTest, AReplacedDestinationIsFreedOnceAndOnlyWhenTheHardwareHasLeftIt) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(1));
  applied(1);
  destinationIs("eth1", kSecond);
  EXPECT_THAT(freed_, IsEmpty()) << "not acknowledged";
  ack(handle, operation(2));
  EXPECT_THAT(freed_, IsEmpty()) << "acknowledged, not applied";
  applied(2);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
  ack(handle, operation(3));
  applied(3);
  applied(4);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADestinationThatNobodyUsesIsFreedAsSoonAsItIsReplaced) {
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, NothingIsFreedForTheFirstDestinationOrForANewNeededSet) {
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kFirst, needed({{kOtherTable, Asic::LogVersion(3)}}));
  EXPECT_THAT(freed_, IsEmpty());
}

TEST_F(FreeingTest, AFailureFreesTheDestinationOnceTheEntriesHaveLeftIt) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  table_->destinationFailed(intf("eth1"));
  run();
  ack(handle, operation(5));
  EXPECT_THAT(freed_, IsEmpty());
  applied(5);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADeletedDestinationStaysWhileEntriesWaitForTheNextOne) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  table_->destinationDel(intf("eth1"));
  run();
  ack(handle, operation(5));
  applied(5);
  EXPECT_THAT(freed_, IsEmpty()) << "the entries keep their logged form";
  destinationIs("eth1", kSecond);
  ack(handle, operation(6));
  EXPECT_THAT(freed_, IsEmpty());
  applied(6);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADeletedDestinationIsFreedWhenItsLastUserHasGone) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  table_->destinationDel(intf("eth1"));
  run();
  ack(handle);
  client_->release(handle, operation(7));
  run();
  EXPECT_THAT(freed_, IsEmpty());
  applied(7);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADeletedDestinationOfNobodyIsFreedAtOnce) {
  destinationIs("eth1", kFirst);
  table_->destinationDel(intf("eth1"));
  run();
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADestinationThatIsSetAgainIsNotFreedUntilItIsReplacedAgain) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  ack(handle, operation(2));
  destinationIs("eth1", kFirst);  // waits for operation 2
  applied(2);
  EXPECT_EQ(handle->destId(), kFirst);
  EXPECT_THAT(freed_, IsEmpty());
  ack(handle, operation(3));
  applied(3);
  EXPECT_THAT(freed_, ElementsAre(eth1(kSecond)));
  destinationIs("eth1", kThird);
  ack(handle, operation(4));
  applied(4);
  EXPECT_THAT(freed_, ElementsAre(eth1(kSecond), eth1(kFirst)));
}

TEST_F(FreeingTest, ADestinationThatWasReplacedBeforeItWasShownIsFreedToo) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(1));
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  applied(1);
  EXPECT_THAT(freed_, ElementsAre(eth1(kSecond)));
  ack(handle, operation(2));
  applied(2);
  EXPECT_THAT(freed_, ElementsAre(eth1(kSecond), eth1(kFirst)));
}

TEST_F(FreeingTest, ARewriteToAnotherInterfaceFreesAfterTheRewriteIsApplied) {
  const HandlePtr first = request("eth1");
  const HandlePtr second = request("eth2");
  destinationIs("eth1", kFirst);
  destinationIs("eth2", kSecond);
  ack(first);
  const auto rewrite = operation(0);
  client_->release(first, rewrite);
  client_->ackUpdate(second, second->updateNumber(), nullptr);
  rewrite->tableVersionIs({kTable, Asic::LogVersion(9)});
  table_->destinationDel(intf("eth1"));
  run();
  EXPECT_EQ(first->destId(), DestId()) << "nobody uses it any more";
  EXPECT_THAT(freed_, IsEmpty());
  applied(9);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, TheHandlerMaySetDestinationsAndReplaceItself) {
  int calls = 0;
  table_->freedHandlerIs([&](Wirex::IntfId intfId, const DestId& destId) {
    ++calls;
    freed_.push_back({intfId, destId});
    table_->freedHandlerIs(nullptr);
    table_->destinationIs(intf("eth1"), kFirst);  // the freed one, for the same interface
    table_->destinationIs(intf("eth2"), kThird);
  });
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(request("eth1")->destId(), kFirst);
  EXPECT_EQ(request("eth2")->destId(), kThird);
}

// What the handler below says about itself outside of its captures, which may be gone.
std::weak_ptr<int> captured;
bool capturedLives = false;

TEST_F(FreeingTest, AHandlerThatReplacesItselfLivesToTheEndOfItsCall) {
  auto held = std::make_shared<int>(1);
  captured = held;
  table_->freedHandlerIs([held = std::move(held), table = table_.get()](auto, const auto&) {
    table->freedHandlerIs(nullptr);
    capturedLives = !captured.expired();
  });
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_TRUE(capturedLives);
  EXPECT_TRUE(captured.expired());
}

TEST_F(FreeingTest, AHandlerThatSetsADestinationThatIsAboutToBeFreedKeepsIt) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle, operation(1));
  destinationIs("eth1", kSecond);
  destinationIs("eth1", kThird);
  destinationIs("eth1", DestId{400, 0, 0});
  table_->freedHandlerIs([&](Wirex::IntfId intfId, const DestId& destId) {
    freed_.push_back({intfId, destId});
    table_->destinationIs(intf("eth1"), kThird);
  });
  applied(1);
  EXPECT_EQ(handle->destId(), kThird);
  EXPECT_THAT(freed_, ElementsAre(eth1(kSecond), eth1(DestId{400, 0, 0})));
}

TEST_F(FreeingTest, WithoutAHandlerNothingIsReported) {
  table_->freedHandlerIs(nullptr);
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_EQ(request()->destId(), kSecond);
  EXPECT_THAT(freed_, IsEmpty());
}

// Users that come and go.

TEST_F(FreeingTest, AUserThatComesAndGoesAheadOfTheHardwareHoldsNoChangeBack) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  std::uint64_t version = 0;
  const auto comeAndGo = [&] {
    client_->release(handle, operation(++version));
    ack(handle);
    applied(version - 1);  // the hardware is one version behind
  };
  for (int round = 0; round < 10; ++round) {
    comeAndGo();
  }
  table_->destinationFailed(intf("eth1"));
  run();
  EXPECT_EQ(handle->entryState(), Asic::EntryState::resourceFailed);
  EXPECT_EQ(table_->waitingUpdates(), 0U);
  ack(handle, operation(version));
  EXPECT_THAT(freed_, IsEmpty());
  comeAndGo();
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst))) << "what came later does not count";
}

TEST_F(FreeingTest, AReleaseBeforeADestinationIsLeftHoldsItsFreeingBackAndOneAfterThatDoesNot) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->release(handle, operation(5));
  destinationIs("eth1", kSecond);
  ack(handle);
  client_->release(handle, operation(9));
  destinationIs("eth1", kThird);
  applied(4);
  EXPECT_THAT(freed_, IsEmpty());
  applied(5);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
  applied(8);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
  applied(9);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst), eth1(kSecond)));
}

TEST_F(FreeingTest, AReleaseByAUserThatHasNotAcknowledgedTheUpdateYetHoldsTheFreeingBack) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  client_->release(handle, operation(7));  // its entries still showed the first one
  run();
  applied(6);
  EXPECT_THAT(freed_, IsEmpty());
  applied(7);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, AChangeGoesOutAtItsOwnVersionWhileAnOldDestinationWaitsForAHigherOne) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->release(handle, operation(10));
  destinationIs("eth1", kSecond);
  ack(handle, operation(5));
  destinationIs("eth1", kThird);
  EXPECT_EQ(handle->destId(), kSecond);
  applied(5);
  EXPECT_EQ(handle->destId(), kThird);
  EXPECT_THAT(freed_, IsEmpty());
}

TEST_F(FreeingTest, EveryTableThatAReleaseNamedMustHaveAppliedIt) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  client_->release(handle, operation(7));
  ack(handle, operation(3, kOtherTable));
  applied(3, kOtherTable);
  client_->release(handle, operation(5, kOtherTable));
  client_->release(handle, operation(6));
  destinationIs("eth1", kSecond);
  EXPECT_EQ(handle->destId(), kSecond);
  applied(5, kOtherTable);
  EXPECT_THAT(freed_, IsEmpty());
  applied(6);
  EXPECT_THAT(freed_, IsEmpty()) << "the higher of two versions";
  applied(7);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADestinationThatIsWantedAgainAndNeverShownKeepsWhatItWaitedFor) {
  const HandlePtr handle = request();
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  ack(handle, operation(2));
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kThird);  // both behind operation 2
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_THAT(freed_, IsEmpty());
  applied(2);
  EXPECT_EQ(handle->destId(), kThird);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, WhatWasAcknowledgedBeforeTheFirstUpdateHoldsTheFreeingBack) {
  const HandlePtr handle = request();
  ack(handle, operation(5));  // entries of a process before this one
  destinationIs("eth1", kFirst);
  ack(handle);
  destinationIs("eth1", kSecond);
  ack(handle);
  EXPECT_EQ(handle->destId(), kSecond);
  EXPECT_THAT(freed_, IsEmpty());
  applied(5);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

TEST_F(FreeingTest, ADestinationThatIsReplacedBeforeTheFirstUpdateIsKeptUntilUsersHaveLeftIt) {
  const HandlePtr handle = request();
  ack(handle);  // an entry that a process before this one wrote with the first destination
  table_->destinationIs(intf("eth1"), kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_THAT(freed_, IsEmpty()) << "not acknowledged";
  ack(handle, operation(3));
  EXPECT_THAT(freed_, IsEmpty());
  applied(3);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

// Handlers that throw.

TEST_F(FreeingTest, AHandlerThatThrowsHasFreedAndHoldsNothingElseUp) {
  for (const char* name : {"eth1", "eth2", "eth3"}) {
    ack(request(name));
    destinationIs(name, kFirst);
    ack(request(name));
  }
  table_->freedHandlerIs([this](Wirex::IntfId intfId, const DestId& destId) {
    freed_.push_back({intfId, destId});
    if (intfId == intf("eth1")) {
      throw std::runtime_error("refused");
    }
    throw std::logic_error("refused too");
  });
  for (const char* name : {"eth1", "eth2", "eth3"}) {
    table_->destinationIs(intf(name), kSecond);
  }
  run();
  for (const char* name : {"eth1", "eth2", "eth3"}) {
    client_->ackUpdate(request(name), 2, nullptr);
    table_->destinationIs(intf(name), kThird);
  }
  EXPECT_THROW(run(), std::runtime_error);
  try {
    run();
  } catch (const std::logic_error&) {
    run();  // thrown in a later turn
  }
  EXPECT_THAT(freed_,
              ElementsAre(eth1(kFirst), Freed{intf("eth2"), kFirst}, Freed{intf("eth3"), kFirst}));
  for (const char* name : {"eth1", "eth2", "eth3"}) {
    EXPECT_EQ(request(name)->destId(), kThird) << name;
  }
}

TEST_F(FreeingTest, AHandlerMayDropTheTable) {
  table_->freedHandlerIs([this](Wirex::IntfId intfId, const DestId& destId) {
    freed_.push_back({intfId, destId});
    client_ = nullptr;
    table_ = nullptr;
  });
  destinationIs("eth1", kFirst);
  destinationIs("eth1", kSecond);
  EXPECT_THAT(freed_, ElementsAre(eth1(kFirst)));
}

// Clients with a hardware that applies their operations in order and late, against an owner that
// sets, fails and deletes the destination of one interface at random.
class RandomUse : public ResourceTableTest {
 protected:
  // One client with one entry.
  struct User {
    Pell::Ptr<ResourceTable::ClientInstance> client;
    std::unique_ptr<Pell::Subscriber> subscriber;
    std::optional<DestId> entry;
    std::optional<DestId> hardware;
  };
  // What a user's entry shows in hardware once that version is applied; nothing: no entry.
  struct Logged {
    std::uint64_t version;
    User* user;
    std::optional<DestId> destination;
  };

  // Each user touches that many rows when it is told.
  void start(std::size_t users, std::uint64_t rows) {
    handle_ = request();
    users_.resize(users);
    for (User& user : users_) {
      user.client = table_->makeClientInstance();
      user.subscriber = std::make_unique<Pell::Subscriber>(
          [this, &user, rows](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                              const void*) {
            driveAgain(user);
            Zev::WorkMeter::add(rows);
          });
      handle_->publisher().subscriberAdd(*user.subscriber);
    }
    table_->freedHandlerIs([this](Wirex::IntfId, const DestId& freed) { expectFree(freed); });
  }
  void stop() { users_.clear(); }

  void log(User& user, std::optional<DestId> destination) {
    user.entry = destination;
    log_.push_back({++version_, &user, destination});
  }
  void writeEntry(User& user) {
    if (handle_->entryState() != Asic::EntryState::done) {
      return;
    }
    if (!user.entry) {
      user.client->ackUpdate(handle_, handle_->updateNumber(), nullptr);
    }
    log(user, handle_->destId());
  }
  void removeEntry(User& user) {
    if (user.entry) {
      const auto removal = operation(0);
      user.client->release(handle_, removal);
      log(user, std::nullopt);
      removal->tableVersionIs({kTable, Asic::LogVersion(version_)});
    }
  }
  void driveAgain(User& user) {
    if (!user.entry) {
      return;
    }
    if (handle_->entryState() != Asic::EntryState::notResolved &&
        handle_->destId() != *user.entry) {
      log(user, handle_->destId());
    }
    user.client->ackUpdate(handle_, handle_->updateNumber(), operation(version_));
  }
  // The report is heard at once; what follows from it takes turns.
  void applyOne() {
    if (!log_.empty()) {
      const Logged logged = log_.front();
      logged.user->hardware = logged.destination;
      log_.pop_front();
      groupLog_->tableVersionIs({kTable, Asic::LogVersion(logged.version)});
    }
  }
  void applyAll() {
    while (!log_.empty()) {
      applyOne();
      run();
    }
    run();
  }

  // The owner's side: a destination that was never used, or one that has come back.
  void setDestination(bool fresh) {
    if (fresh || given_.empty()) {
      given_.insert(++lastDestination_);
    }
    target_ = fresh ? lastDestination_ : *given_.begin();
    table_->destinationIs(intf("eth1"), DestId{target_, 0, 0});
  }
  void expectFree(const DestId& freed) {
    EXPECT_EQ(given_.erase(freed.first), 1U) << freed.first << " freed twice";
    EXPECT_NE(freed.first, target_);
    EXPECT_NE(freed, handle_->destId());
    for (const User& user : users_) {
      EXPECT_NE(user.hardware, freed);
    }
    for (const Logged& logged : log_) {
      EXPECT_NE(logged.destination, freed) << "version " << logged.version << " brings it back";
    }
  }
  void step(unsigned long action, User& user) {
    switch (action) {
      case 0:
      case 1:
      case 2:
        setDestination(true);
        break;
      case 3:
        setDestination(false);
        break;
      case 4:
        target_ = 0;
        table_->destinationFailed(intf("eth1"));
        break;
      case 5:
        target_ = 0;
        table_->destinationDel(intf("eth1"));
        break;
      case 6:
        writeEntry(user);
        break;
      case 7:
        removeEntry(user);
        break;
      default:
        applyOne();
        break;
    }
  }
  void expectOnlyTheTargetKept() {
    run();
    setDestination(true);
    run();
    applyAll();
    EXPECT_EQ(handle_->destId().first, target_);
    EXPECT_THAT(given_, UnorderedElementsAre(target_));
  }

  HandlePtr handle_;
  std::deque<User> users_;
  std::deque<Logged> log_;
  std::uint64_t version_ = 0;
  std::set<std::uint32_t> given_;  // and not freed
  std::uint32_t lastDestination_ = 0;
  std::uint32_t target_ = 0;
};

TEST_F(RandomUse, NoDestinationIsFreedWhileInUseAndEveryOneOnceInTheEnd) {
  constexpr std::uint32_t kSeed = 20261121;
  constexpr int kSteps = 5000;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  start(1, 0);
  for (int step = 0; step < kSteps && !HasFailure(); ++step) {
    this->step(random() % 10, users_.front());
    if (random() % 2 == 0) {
      run();
    }
  }
  expectOnlyTheTargetKept();
  EXPECT_LT(version_, static_cast<std::uint64_t>(kSteps));
  EXPECT_GT(lastDestination_, 1000U);
  stop();
}

// The users are told in turns of their own, and come, go and write between those.
TEST_F(RandomUse, NoDestinationIsFreedWhileOneOfSeveralUsersIsStillToBeTold) {
  constexpr std::uint32_t kSeed = 20261122;
  constexpr int kSteps = 20000;
  constexpr std::size_t kUsers = 4;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  start(kUsers, ResourceTable::kRowsPerTurn);
  for (int step = 0; step < kSteps && !HasFailure(); ++step) {
    // Destinations change less often, so that users are there when they do.
    const unsigned long action = random() % 4 == 0 ? random() % 10 : 6 + random() % 4;
    this->step(action, users_[random() % kUsers]);
    for (unsigned long turns = random() % 3; turns > 0; --turns) {
      loop_.runOne();
    }
  }
  expectOnlyTheTargetKept();
  EXPECT_GT(lastDestination_, 1000U);
  stop();
}

}  // namespace
