#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Asic/OrderedSwTableStatus.h"
#include "testing/LeakCheck.h"

namespace {

using Asic::OrderedSwTableStatus;
using ::testing::ElementsAre;

class OrderedSwTableStatusTest : public testing_support::LeakCheckedTest {
 protected:
  OrderedSwTableStatusTest() { status_->publisher().subscriberAdd(subscriber_); }

  Pell::Ptr<OrderedSwTableStatus> status_ =
      Zev::makeObject<OrderedSwTableStatus>(Asic::SwTableId(0x03010805));
  std::vector<short> heard_;
  Pell::Subscriber subscriber_{[this](Pell::Publisher*, Pell::Subscriber*, short attribute,
                                      const void*, const void*) { heard_.push_back(attribute); }};
};

TEST_F(OrderedSwTableStatusTest, StartsWithNothingPendingAndNotSuspended) {
  EXPECT_EQ(status_->tableId(), Asic::SwTableId(0x03010805));
  EXPECT_FALSE(status_->pendingHwWrites());
  EXPECT_FALSE(status_->suspend());
}

TEST_F(OrderedSwTableStatusTest, EachFlagIsPublishedOnlyWhenItChanges) {
  status_->pendingHwWritesIs(false);
  status_->suspendIs(false);
  status_->pendingHwWritesIs(true);
  status_->pendingHwWritesIs(true);
  status_->suspendIs(true);
  status_->suspendIs(true);
  status_->pendingHwWritesIs(false);
  status_->suspendIs(false);
  static_assert(OrderedSwTableStatus::kPendingHwWritesAttribute == 2);
  static_assert(OrderedSwTableStatus::kSuspendAttribute == 3);
  EXPECT_THAT(heard_, ElementsAre(2, 3, 2, 3));
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
}

}  // namespace
