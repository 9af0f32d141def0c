// When a destination that has been replaced is reported free.

#include <cstdint>
#include <deque>
#include <iostream>
#include <optional>
#include <random>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResourceTableFixture.h"

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
  EXPECT_EQ(first->destId(), kFirst);
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

// A client with a hardware that applies its operations in order and late, against an owner that
// sets, fails and deletes the destination of one interface at random.
class RandomUse : public ResourceTableTest {
 protected:
  // What the client's entry shows in hardware once that version is applied; nothing: no entry.
  using Logged = std::pair<std::uint64_t, std::optional<DestId>>;

  void start() {
    handle_ = request();
    subscriber_.emplace([this](Pell::Publisher*, Pell::Subscriber*, short, const void*,
                               const void*) { driveAgain(); });
    handle_->publisher().subscriberAdd(*subscriber_);
    table_->freedHandlerIs([this](Wirex::IntfId, const DestId& freed) { expectFree(freed); });
  }
  void stop() { handle_->publisher().subscriberRemove(*subscriber_); }

  void log(std::optional<DestId> destination) {
    entry_ = destination;
    log_.emplace_back(++version_, destination);
  }
  void writeEntry() {
    if (handle_->entryState() != Asic::EntryState::done) {
      return;
    }
    if (!entry_) {
      client_->ackUpdate(handle_, handle_->updateNumber(), nullptr);
    }
    log(handle_->destId());
  }
  void removeEntry() {
    if (entry_) {
      const auto removal = operation(0);
      client_->release(handle_, removal);
      log(std::nullopt);
      removal->tableVersionIs({kTable, Asic::LogVersion(version_)});
    }
  }
  void driveAgain() {
    if (!entry_) {
      return;
    }
    if (handle_->entryState() != Asic::EntryState::notResolved && handle_->destId() != *entry_) {
      log(handle_->destId());
    }
    client_->ackUpdate(handle_, handle_->updateNumber(), operation(version_));
  }
  void applyOne() {
    if (!log_.empty()) {
      hardware_ = log_.front().second;
      const std::uint64_t version = log_.front().first;
      log_.pop_front();
      applied(version);
    }
  }
  void applyAll() {
    while (!log_.empty()) {
      applyOne();
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
    EXPECT_NE(hardware_, freed);
    for (const Logged& logged : log_) {
      EXPECT_NE(logged.second, freed) << "version " << logged.first << " brings it back";
    }
  }

  HandlePtr handle_;
  std::optional<Pell::Subscriber> subscriber_;
  std::deque<Logged> log_;
  std::uint64_t version_ = 0;
  std::optional<DestId> entry_;
  std::optional<DestId> hardware_;
  std::set<std::uint32_t> given_;  // and not freed
  std::uint32_t lastDestination_ = 0;
  std::uint32_t target_ = 0;
};

TEST_F(RandomUse, NoDestinationIsFreedWhileInUseAndEveryOneOnceInTheEnd) {
  constexpr std::uint32_t kSeed = 20261121;
  constexpr int kSteps = 5000;
  std::cout << "seed " << kSeed << '\n';
  std::mt19937 random(kSeed);
  start();
  for (int step = 0; step < kSteps && !HasFailure(); ++step) {
    switch (random() % 10) {
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
        writeEntry();
        break;
      case 7:
        removeEntry();
        break;
      default:
        applyOne();
        break;
    }
    if (random() % 2 == 0) {
      run();
    }
  }
  run();
  setDestination(true);
  run();
  applyAll();
  EXPECT_EQ(handle_->destId().first, target_);
  EXPECT_THAT(given_, UnorderedElementsAre(target_));
  EXPECT_LT(version_, static_cast<std::uint64_t>(kSteps));
  EXPECT_GT(lastDestination_, 1000U);
  stop();
}

}  // namespace
