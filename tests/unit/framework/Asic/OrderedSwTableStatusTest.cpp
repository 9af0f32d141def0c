// SPDX-License-Identifier: Apache-2.0

#include <functional>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedSwTableStatus.h"
#include "testing/LeakCheck.h"
#include "testing/TraceRecorder.h"

namespace {

using Asic::OrderedSwTableStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr short kPending = OrderedSwTableStatus::kPendingHwWritesAttribute;
constexpr short kSuspend = OrderedSwTableStatus::kSuspendAttribute;
constexpr short kAsked = OrderedSwTableStatus::kHwWriteAskedAttribute;

class OrderedSwTableStatusTest : public testing_support::LeakCheckedTest {
 protected:
  OrderedSwTableStatusTest() { status_->publisher().subscriberAdd(subscriber_); }

  Pell::Ptr<OrderedSwTableStatus> status_ =
      Zev::makeObject<OrderedSwTableStatus>(Asic::SwTableId(0x03010805));
  std::vector<short> heard_;
  std::function<void(short)> onHeard_ = [](short) {};
  Pell::Subscriber subscriber_{
      [this](Pell::Publisher*, Pell::Subscriber*, short attribute, const void*, const void*) {
        heard_.push_back(attribute);
        onHeard_(attribute);
      }};
};

TEST_F(OrderedSwTableStatusTest, StartsWithNothingPendingAndNotSuspended) {
  EXPECT_EQ(status_->tableId(), Asic::SwTableId(0x03010805));
  EXPECT_FALSE(status_->pendingHwWrites());
  EXPECT_FALSE(status_->suspend());
}

TEST_F(OrderedSwTableStatusTest, EachFlagIsPublishedOnlyWhenItChanges) {
  status_->pendingHwWritesIs(false);
  status_->suspendIs(false);
  EXPECT_THAT(heard_, IsEmpty());
  status_->pendingHwWritesIs(true);
  status_->suspendIs(true);
  status_->suspendIs(true);
  status_->pendingHwWritesIs(false);
  status_->pendingHwWritesIs(false);
  status_->suspendIs(false);
  EXPECT_THAT(heard_, ElementsAre(kPending, kAsked, kSuspend, kPending, kSuspend));
}

TEST_F(OrderedSwTableStatusTest, EveryWriteThatIsAskedForIsAnEventAlsoWhileTheFlagIsUp) {
  status_->pendingHwWritesIs(true);
  heard_.clear();
  status_->pendingHwWritesIs(true);
  EXPECT_THAT(heard_, ElementsAre(kAsked));
  status_->pendingHwWritesIs(true);
  EXPECT_THAT(heard_, ElementsAre(kAsked, kAsked));
}

TEST_F(OrderedSwTableStatusTest, AnObserverHearsWhenTheFlagHasItsNewValue) {
  std::vector<bool> seen;
  onHeard_ = [&](short) { seen.push_back(status_->pendingHwWrites()); };
  status_->pendingHwWritesIs(true);
  status_->pendingHwWritesIs(false);
  EXPECT_THAT(seen, ElementsAre(true, true, false));
}

TEST_F(OrderedSwTableStatusTest, AnObserverOfTheFlagThatThrowsDoesNotKeepTheEventBack) {
  onHeard_ = [](short attribute) {
    if (attribute == kPending) {
      throw std::runtime_error("observer");
    }
  };
  EXPECT_THROW(status_->pendingHwWritesIs(true), std::runtime_error);
  EXPECT_TRUE(status_->pendingHwWrites());
  EXPECT_THAT(heard_, ElementsAre(kPending, kAsked));
}

TEST_F(OrderedSwTableStatusTest, AnObserverMayDropTheStatus) {
  auto& tracker = Zev::trackerOf<OrderedSwTableStatus>();
  OrderedSwTableStatus* status = status_.get();
  onHeard_ = [this](short) { status_ = nullptr; };
  status->pendingHwWritesIs(true);
  EXPECT_EQ(tracker.live(), 0);
  EXPECT_THAT(heard_, ElementsAre(kPending, kAsked));
}

TEST_F(OrderedSwTableStatusTest, CallsAreTracedUnderTheClassesName) {
  const testing_support::TraceRecorder traces({"OrderedSwTableStatus"});
  status_->pendingHwWritesIs(true);
  status_->suspendIs(true);
  EXPECT_THAT(
      traces.lines(),
      ElementsAre("8 OrderedSwTableStatus::pendingHwWritesIs tableId: 03:01:0805 pending: true",
                  "8 OrderedSwTableStatus::suspendIs tableId: 03:01:0805 suspend: true"));
}

TEST_F(OrderedSwTableStatusTest, TheFlagsAreIndependent) {
  status_->pendingHwWritesIs(true);
  EXPECT_FALSE(status_->suspend());
  status_->suspendIs(true);
  status_->pendingHwWritesIs(false);
  EXPECT_TRUE(status_->suspend());
}

TEST_F(OrderedSwTableStatusTest, ItNamesItsTypeAndAttributes) {
  EXPECT_EQ(status_->fwkType().name, "Asic::OrderedSwTableStatus");
  EXPECT_EQ(status_->fwkType().attribute("pendingHwWrites")->id, 2);
  EXPECT_EQ(status_->fwkType().attribute("suspend")->id, 3);
  EXPECT_EQ(status_->fwkType().attribute("hwWriteAsked")->id, 4);
}

}  // namespace
