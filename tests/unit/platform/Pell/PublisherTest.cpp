#include <cstdint>
#include <functional>
#include <memory>
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

}  // namespace
