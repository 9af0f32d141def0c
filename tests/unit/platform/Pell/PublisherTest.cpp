// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/Publisher.h"

namespace {

using Pell::Publisher;
using Pell::Subscriber;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Notes the name of each subscriber that heard something, and then does what the test asks for.
class PublisherTest : public ::testing::Test {
 protected:
  std::unique_ptr<Subscriber> listener(std::string name, std::function<void()> then = {}) {
    return std::make_unique<Subscriber>(
        [this, name = std::move(name), then = std::move(then)](Publisher*, Subscriber*, short,
                                                               const void*, const void*) {
          heard_.push_back(name);
          if (then) {
            then();
          }
        });
  }

  std::vector<std::string> heard_;
  std::unique_ptr<Publisher> publisher_ = std::make_unique<Publisher>();
};

TEST_F(PublisherTest, ACallbackGetsPublisherSubscriberAttributeAndValues) {
  struct Heard {
    Publisher* publisher;
    Subscriber* subscriber;
    short attributeId;
    const void* element;
    const void* oldValue;
    bool operator==(const Heard&) const = default;
  };
  std::vector<Heard> heard;
  Subscriber subscriber([&](Publisher* publisher, Subscriber* self, short attributeId,
                            const void* element, const void* oldValue) {
    heard.push_back({publisher, self, attributeId, element, oldValue});
  });
  publisher_->subscriberAdd(subscriber);
  const std::uint32_t element = 7;
  const std::uint64_t oldValue = 9;
  publisher_->attributeChange(517);
  publisher_->attributeElementChange(139, &element);
  publisher_->recursiveAttributeChange(12, &oldValue);
  Publisher* const from = publisher_.get();
  EXPECT_THAT(heard, ElementsAre(Heard{from, &subscriber, 517, nullptr, nullptr},
                                 Heard{from, &subscriber, 139, &element, nullptr},
                                 Heard{from, &subscriber, 12, nullptr, &oldValue}));
}

TEST_F(PublisherTest, SubscribersHearInTheOrderInWhichTheyCame) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto c = listener("c");
  publisher_->subscriberAdd(*b);
  publisher_->subscriberAdd(*c);
  publisher_->subscriberAdd(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("b", "c", "a"));
}

TEST_F(PublisherTest, IsIdleWithoutSubscribersAndDeliveries) {
  EXPECT_TRUE(publisher_->idle());
  publisher_->attributeChange(1);
  bool idleDuringDelivery = true;
  std::unique_ptr<Subscriber> only;
  only = listener("only", [&] {
    publisher_->subscriberRemove(*only);
    idleDuringDelivery = publisher_->idle();
  });
  publisher_->subscriberAdd(*only);
  EXPECT_FALSE(publisher_->idle());
  publisher_->attributeChange(1);
  EXPECT_FALSE(idleDuringDelivery) << "a delivery was under way";
  EXPECT_TRUE(publisher_->idle());
}

TEST_F(PublisherTest, ASubscriberAddedTwiceHearsTwiceAndIsRemovedOnceAtATime) {
  const auto a = listener("a");
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->subscriberAdd(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "a"));
  heard_.clear();
  publisher_->subscriberRemove(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("b", "a"));
  heard_.clear();
  publisher_->subscriberRemove(*a);
  publisher_->subscriberRemove(*a);  // absent by now
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("b"));
}

TEST_F(PublisherTest, RemovingASubscriberThatNeverCameChangesNothing) {
  const auto stranger = listener("stranger");
  publisher_->subscriberRemove(*stranger);
  EXPECT_TRUE(publisher_->idle());
  const auto a = listener("a");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberRemove(*stranger);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a"));
}

TEST_F(PublisherTest, ASubscriberMayRemoveItselfDuringDelivery) {
  std::unique_ptr<Subscriber> a;
  a = listener("a", [&] { publisher_->subscriberRemove(*a); });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b"));
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "b"));
}

TEST_F(PublisherTest, RemovingTheNextOneDuringDeliveryKeepsItSilentAndTheRestHeard) {
  const auto b = listener("b");
  const auto c = listener("c");
  const auto a = listener("a", [&] { publisher_->subscriberRemove(*b); });
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->subscriberAdd(*c);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "c"));
}

TEST_F(PublisherTest, RemovingAnEarlierOneDuringDeliverySkipsNobody) {
  const auto a = listener("a");
  const auto b = listener("b", [&] { publisher_->subscriberRemove(*a); });
  const auto c = listener("c");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->subscriberAdd(*c);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "c"));
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "c", "b", "c"));
}

TEST_F(PublisherTest, ASubscriberAddedDuringDeliveryHearsTheNextChangeOnly) {
  const auto late = listener("late");
  bool added = false;
  const auto a = listener("a", [&] {
    if (!added) {
      publisher_->subscriberAdd(*late);
      added = true;
    }
  });
  publisher_->subscriberAdd(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a"));
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "a", "late"));
}

TEST_F(PublisherTest, AReaddedSubscriberHearsTheNextChangeAndOnlyOnce) {
  std::unique_ptr<Subscriber> a;
  a = listener("a", [&] {
    publisher_->subscriberRemove(*a);
    publisher_->subscriberAdd(*a);
  });
  publisher_->subscriberAdd(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a"));
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "a"));
}

TEST_F(PublisherTest, ManyAddedDuringDeliveryDoNotDisturbIt) {
  std::vector<std::unique_ptr<Subscriber>> late;
  const auto a = listener("a", [&] {
    for (int i = 0; i < 1000; ++i) {
      late.push_back(listener("late"));
      publisher_->subscriberAdd(*late.back());
    }
  });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b"));
}

TEST_F(PublisherTest, ASubscriberMayDestroyItselfInItsCallback) {
  std::unique_ptr<Subscriber> a;
  const std::string captured(100, 'x');  // in the callback, which dies with the subscriber
  std::string after;
  a = std::make_unique<Subscriber>(
      [&, captured](Publisher* publisher, Subscriber* self, short, const void*, const void*) {
        publisher->subscriberRemove(*self);
        a.reset();
        after = captured;
      });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_EQ(after, captured);
  EXPECT_THAT(heard_, ElementsAre("b"));
}

TEST_F(PublisherTest, ASubscriberMayDestroyTheNextOne) {
  auto b = listener("b");
  const auto a = listener("a", [&] {
    publisher_->subscriberRemove(*b);
    b.reset();
  });
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a"));
}

TEST_F(PublisherTest, ThePublisherMayBeDestroyedDuringDelivery) {
  const auto a = listener("a", [&] { publisher_.reset(); });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a")) << "nothing is delivered for an object that is gone";
}

TEST_F(PublisherTest, ThePublisherMayBeDestroyedInANestedDelivery) {
  int depth = 0;
  const auto a = listener("a", [&] {
    if (++depth == 1) {
      publisher_->attributeChange(2);
    } else {
      publisher_.reset();
    }
  });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "a"));
}

TEST_F(PublisherTest, ANestedDeliveryIsCompleteBeforeTheOuterOneGoesOn) {
  std::vector<short> order;
  bool nested = false;
  Subscriber a([&](Publisher* publisher, Subscriber*, short attributeId, const void*, const void*) {
    order.push_back(attributeId);
    if (!nested) {
      nested = true;
      publisher->attributeChange(2);
    }
  });
  Subscriber b([&](Publisher*, Subscriber*, short attributeId, const void*, const void*) {
    order.push_back(static_cast<short>(attributeId + 10));
  });
  publisher_->subscriberAdd(a);
  publisher_->subscriberAdd(b);
  publisher_->attributeChange(1);
  EXPECT_THAT(order, ElementsAre(1, 2, 12, 11));
}

TEST_F(PublisherTest, ARemovalInANestedDeliveryHoldsInTheOuterOne) {
  const auto c = listener("c");
  int depth = 0;
  const auto a = listener("a", [&] {
    if (++depth == 1) {
      publisher_->attributeChange(2);
    }
  });
  const auto b = listener("b", [&] { publisher_->subscriberRemove(*c); });
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  publisher_->subscriberAdd(*c);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "a", "b", "b"));
}

TEST_F(PublisherTest, AnExceptionOfACallbackReachesThePublishingCallAndLeavesThePublisherWhole) {
  std::unique_ptr<Subscriber> a;
  a = listener("a", [&] {
    publisher_->subscriberRemove(*a);
    throw std::runtime_error("refused");
  });
  publisher_->subscriberAdd(*a);
  EXPECT_THROW(publisher_->attributeChange(1), std::runtime_error);
  EXPECT_TRUE(publisher_->idle());
}

TEST_F(PublisherTest, ACallbackKeepsItsStateFromCallToCall) {
  std::vector<int> counts;
  Subscriber counter([&counts, count = 0](Publisher*, Subscriber*, short, const void*,
                                          const void*) mutable { counts.push_back(++count); });
  publisher_->subscriberAdd(counter);
  publisher_->attributeChange(1);
  publisher_->attributeChange(1);
  EXPECT_THAT(counts, ElementsAre(1, 2));
}

TEST_F(PublisherTest, ASubscriberThatDiesIsRemovedByItsEnd) {
  const auto b = listener("b");
  {
    const auto a = listener("a");
    publisher_->subscriberAdd(*a);
    publisher_->subscriberAdd(*b);
    publisher_->subscriberAdd(*a);
  }
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("b"));
  publisher_->subscriberRemove(*b);
  EXPECT_TRUE(publisher_->idle());
}

using PublisherDeathTest = PublisherTest;

// Removal.

class PublisherRemovalTest : public PublisherTest {
 protected:
  static constexpr int kMany = 80'000;

  void addMany() {
    for (int i = 0; i < kMany; ++i) {
      subscribers_.push_back(
          std::make_unique<Subscriber>([this, i](Publisher*, Subscriber*, short, const void*,
                                                 const void*) { told_.push_back(i); }));
      publisher_->subscriberAdd(*subscribers_.back());
    }
  }
  void remove(int i) { publisher_->subscriberRemove(*subscribers_[static_cast<std::size_t>(i)]); }
  static std::vector<int> inOrder() {
    std::vector<int> order(kMany);
    std::iota(order.begin(), order.end(), 0);
    return order;
  }
  // Half of them, then the other half: each half costs its number, and who is left hears in order.
  void removeInHalves(const std::vector<int>& order) {
    addMany();
    const auto middle = order.begin() + kMany / 2;
    std::for_each(order.begin(), middle, [this](int i) { remove(i); });
    publisher_->attributeChange(1);
    std::vector<int> left(middle, order.end());
    std::ranges::sort(left);
    EXPECT_EQ(told_, left);
    std::for_each(middle, order.end(), [this](int i) { remove(i); });
    EXPECT_TRUE(publisher_->idle());
    told_.clear();
    publisher_->attributeChange(1);
    EXPECT_THAT(told_, IsEmpty());
    EXPECT_LE(publisher_->removalSteps(), 4U * kMany);
    EXPECT_GT(publisher_->removalSteps(), std::uint64_t{kMany}) << "the holes were closed up";
  }

  std::vector<std::unique_ptr<Subscriber>> subscribers_;
  std::vector<int> told_;
};

TEST_F(PublisherRemovalTest, HolesThatADeliveryLeavesAreClosedAtItsEnd) {
  const auto stays = listener("stays");
  std::vector<std::unique_ptr<Subscriber>> leave;
  const auto last = listener("last", [&] { leave.clear(); });
  for (int i = 0; i < 3; ++i) {
    leave.push_back(listener("leaves"));
    publisher_->subscriberAdd(*leave.back());
  }
  publisher_->subscriberAdd(*stays);
  publisher_->subscriberAdd(*last);
  publisher_->attributeChange(1);
  EXPECT_EQ(publisher_->removalSteps(), 3U + 5U) << "three removals, and all places once";
  heard_.clear();
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("stays", "last"));
}

TEST_F(PublisherRemovalTest, CostsAConstantInTheOrderOfTheAdditions) { removeInHalves(inOrder()); }

TEST_F(PublisherRemovalTest, CostsAConstantAgainstTheOrderOfTheAdditions) {
  auto order = inOrder();
  std::ranges::reverse(order);
  removeInHalves(order);
}

TEST_F(PublisherRemovalTest, CostsAConstantInAnyOrder) {
  constexpr std::uint32_t kSeed = 20261122;
  auto order = inOrder();
  std::shuffle(order.begin(), order.end(), std::mt19937(kSeed));
  removeInHalves(order);
}

TEST_F(PublisherRemovalTest, CostsAConstantWhileOthersComeAndGo) {
  addMany();
  const auto passing = listener("passing");
  for (int i = 0; i < kMany; ++i) {
    publisher_->subscriberAdd(*passing);
    publisher_->subscriberRemove(*passing);
  }
  EXPECT_LE(publisher_->removalSteps(), 4U * kMany);
  publisher_->attributeChange(1);
  EXPECT_EQ(told_, inOrder());
}

TEST_F(PublisherRemovalTest, InOneDeliveryCostsAConstantToo) {
  const auto removesAll = listener("removes all", [this] {
    for (int i = 0; i < kMany; ++i) {
      remove(i);
    }
  });
  publisher_->subscriberAdd(*removesAll);
  addMany();
  publisher_->attributeChange(1);
  EXPECT_THAT(told_, IsEmpty());
  EXPECT_LE(publisher_->removalSteps(), 4U * kMany);
  EXPECT_FALSE(publisher_->idle());
}

TEST_F(PublisherTest, TheOldestAdditionIsRemovedAfterOthersHaveGoneToo) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto c = listener("c");
  for (const auto* next : {&c, &a, &c, &b, &c, &a, &c}) {
    publisher_->subscriberAdd(**next);
  }
  for (int i = 0; i < 3; ++i) {
    publisher_->subscriberRemove(*c);
  }
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "a", "c"));
  heard_.clear();
  publisher_->subscriberRemove(*c);  // more holes than subscribers
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "b", "a"));
  heard_.clear();
  publisher_->subscriberRemove(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("b", "a"));
}

TEST_F(PublisherTest, ASubscriberMayGoToAnotherPublisherOnceItIsFree) {
  const auto a = listener("a");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberRemove(*a);
  auto second = std::make_unique<Publisher>();
  second->subscriberAdd(*a);
  second->subscriberAdd(*a);
  publisher_->subscriberRemove(*a);  // absent there
  second.reset();
  publisher_->subscriberAdd(*a);
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a"));
}

TEST_F(PublisherDeathTest, ASubscriberThatIsWithAnotherPublisherStopsTheProcess) {
  const auto a = listener("a");
  publisher_->subscriberAdd(*a);
  Publisher second;
  EXPECT_DEATH(second.subscriberAdd(*a), "a subscriber of one publisher: it is with another one");
}

// One subscriber per step.

TEST_F(PublisherTest, APacedDeliveryTellsOnePerStepInOrder) {
  Subscriber first([&](Publisher* publisher, Subscriber* self, short attributeId,
                       const void* element, const void* oldValue) {
    EXPECT_EQ(publisher, publisher_.get());
    EXPECT_EQ(self, &first);
    EXPECT_EQ(attributeId, 517);
    EXPECT_EQ(element, nullptr);
    EXPECT_EQ(oldValue, nullptr);
    heard_.emplace_back("first");
  });
  const auto b = listener("b");
  publisher_->subscriberAdd(first);
  publisher_->subscriberAdd(*b);
  auto delivery = publisher_->pacedAttributeChange(517);
  EXPECT_TRUE(delivery.more());
  EXPECT_THAT(heard_, ElementsAre()) << "nobody is told by the call that begins";
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_THAT(heard_, ElementsAre("first"));
  EXPECT_TRUE(delivery.more());
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_FALSE(delivery.more());
  EXPECT_FALSE(delivery.tellNext());
  EXPECT_THAT(heard_, ElementsAre("first", "b"));
}

TEST_F(PublisherTest, AStepOfAPacedDeliveryIsADeliveryUnderWay) {
  bool idleDuringStep = true;
  std::unique_ptr<Subscriber> only;
  only = listener("only", [&] {
    publisher_->subscriberRemove(*only);
    idleDuringStep = publisher_->idle();
  });
  publisher_->subscriberAdd(*only);
  auto delivery = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_FALSE(idleDuringStep);
  EXPECT_TRUE(publisher_->idle());
}

TEST_F(PublisherTest, APacedDeliveryToNobodyIsOverAtOnce) {
  auto ofNone = publisher_->pacedAttributeChange(1);
  EXPECT_FALSE(ofNone.more());
  const auto a = listener("a");
  publisher_->subscriberAdd(*a);
  EXPECT_FALSE(ofNone.tellNext()) << "came after the change";
  publisher_->subscriberRemove(*a);
  auto ofNoneLeft = publisher_->pacedAttributeChange(1);
  EXPECT_FALSE(ofNoneLeft.more());
}

TEST_F(PublisherTest, WhoComesDuringAPacedDeliveryIsNotToldNorWhoGoesNorWhoComesBack) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto c = listener("c");
  const auto d = listener("d");
  const auto late = listener("late");
  for (const auto* known : {&a, &b, &c, &d}) {
    publisher_->subscriberAdd(**known);
  }
  auto delivery = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(delivery.tellNext());
  publisher_->subscriberAdd(*late);
  publisher_->subscriberRemove(*a);
  publisher_->subscriberRemove(*b);
  publisher_->subscriberRemove(*c);  // the list is closed up by now
  publisher_->subscriberAdd(*c);
  EXPECT_TRUE(delivery.more());
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_FALSE(delivery.more());
  EXPECT_THAT(heard_, ElementsAre("a", "d"));
  publisher_->attributeChange(1);
  EXPECT_THAT(heard_, ElementsAre("a", "d", "d", "late", "c"));
}

TEST_F(PublisherTest, WhoComesBehindSomebodyWhoCameAndWentDuringAPacedDeliveryIsNotToldEither) {
  const auto a = listener("a");
  const auto b = listener("b");
  const auto c = listener("c");
  const auto gone = listener("gone");
  const auto late = listener("late");
  for (const auto* known : {&a, &b, &c}) {
    publisher_->subscriberAdd(**known);
  }
  auto delivery = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_TRUE(delivery.tellNext());
  publisher_->subscriberAdd(*gone);
  publisher_->subscriberAdd(*late);
  publisher_->subscriberRemove(*c);
  publisher_->subscriberRemove(*gone);  // no more holes than others: the list is not closed up
  EXPECT_FALSE(delivery.more());
  EXPECT_FALSE(delivery.tellNext());
  EXPECT_THAT(heard_, ElementsAre("a", "b"));
}

TEST_F(PublisherTest, APacedDeliveryIsOverWhenThoseLeftHaveGone) {
  const auto a = listener("a");
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  auto delivery = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_TRUE(delivery.more());
  publisher_->subscriberRemove(*b);
  EXPECT_FALSE(delivery.more());
  EXPECT_FALSE(delivery.tellNext());
}

TEST_F(PublisherTest, OtherDeliveriesRunBetweenTheStepsOfAPacedOne) {
  std::vector<short> order;
  Subscriber a([&](Publisher*, Subscriber*, short attributeId, const void*, const void*) {
    order.push_back(attributeId);
  });
  Subscriber b([&](Publisher*, Subscriber*, short attributeId, const void*, const void*) {
    order.push_back(static_cast<short>(attributeId + 10));
  });
  publisher_->subscriberAdd(a);
  publisher_->subscriberAdd(b);
  auto outer = publisher_->pacedAttributeChange(1);
  auto inner = publisher_->pacedAttributeChange(2);
  EXPECT_TRUE(outer.tellNext());
  EXPECT_TRUE(inner.tellNext());
  publisher_->attributeChange(3);
  EXPECT_TRUE(outer.tellNext());
  EXPECT_TRUE(inner.tellNext());
  EXPECT_THAT(order, ElementsAre(1, 2, 3, 13, 11, 12));
}

TEST_F(PublisherTest, ThePublisherMayBeDestroyedBetweenAndDuringTheStepsOfAPacedDelivery) {
  const auto a = listener("a");
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  auto between = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(between.tellNext());
  publisher_.reset();
  EXPECT_FALSE(between.more());
  EXPECT_FALSE(between.tellNext());

  publisher_ = std::make_unique<Publisher>();
  const auto destroys = listener("destroys", [&] { publisher_.reset(); });
  publisher_->subscriberAdd(*destroys);
  publisher_->subscriberAdd(*b);
  auto during = publisher_->pacedAttributeChange(1);
  EXPECT_TRUE(during.tellNext());
  EXPECT_FALSE(during.tellNext());
  EXPECT_THAT(heard_, ElementsAre("a", "destroys"));
}

TEST_F(PublisherTest, ASubscriberMayDestroyItselfAndThePacedDeliveryInItsStep) {
  std::unique_ptr<Publisher::PacedDelivery> delivery;
  std::unique_ptr<Subscriber> a;
  a = listener("a", [&] {
    publisher_->subscriberRemove(*a);
    a.reset();
    delivery.reset();
  });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  delivery = std::make_unique<Publisher::PacedDelivery>(publisher_->pacedAttributeChange(1));
  EXPECT_TRUE(delivery->tellNext());
  EXPECT_EQ(delivery, nullptr);
  EXPECT_THAT(heard_, ElementsAre("a"));
}

TEST_F(PublisherTest, WhoThrowsInAStepHasBeenToldAndTheNextStepGoesOnBehindIt) {
  const auto a = listener("a", [] { throw std::runtime_error("refused"); });
  const auto b = listener("b");
  publisher_->subscriberAdd(*a);
  publisher_->subscriberAdd(*b);
  auto delivery = publisher_->pacedAttributeChange(1);
  EXPECT_THROW(delivery.tellNext(), std::runtime_error);
  EXPECT_TRUE(delivery.tellNext());
  EXPECT_FALSE(delivery.more());
  EXPECT_THAT(heard_, ElementsAre("a", "b"));
}

TEST_F(PublisherTest, AThousandRemovalsBetweenStepsAreSkippedAndNobodyElse) {
  std::vector<std::unique_ptr<Subscriber>> all;
  for (int i = 0; i < 1000; ++i) {
    all.push_back(listener(std::to_string(i)));
    publisher_->subscriberAdd(*all.back());
  }
  auto delivery = publisher_->pacedAttributeChange(1);
  for (std::size_t i = 0; delivery.tellNext(); i += 10) {
    for (std::size_t gone = i; gone < i + 10; ++gone) {
      publisher_->subscriberRemove(*all[gone]);  // the one just told and nine that were not
    }
  }
  EXPECT_EQ(heard_.size(), 100U);
  EXPECT_EQ(heard_.back(), "990");
  EXPECT_TRUE(publisher_->idle());
}

}  // namespace
