// SPDX-License-Identifier: Apache-2.0

#include <thread>

#include <gtest/gtest.h>

#include "Zev/WorkMeter.h"

namespace {

TEST(WorkMeterTest, CountsWhatIsAdded) {
  const std::uint64_t before = Zev::WorkMeter::total();
  Zev::WorkMeter::add(3);
  Zev::WorkMeter::add(4);
  EXPECT_EQ(Zev::WorkMeter::total() - before, 7U);
}

TEST(WorkMeterTest, EachThreadHasItsOwn) {
  const std::uint64_t before = Zev::WorkMeter::total();
  std::thread([] { Zev::WorkMeter::add(5); }).join();
  EXPECT_EQ(Zev::WorkMeter::total(), before);
}

TEST(WorkBudgetTest, IsSpentAtItsRowsAndNotOneBefore) {
  const Zev::WorkBudget budget(3);
  Zev::WorkMeter::add(2);
  EXPECT_EQ(budget.used(), 2U);
  EXPECT_FALSE(budget.spent());
  Zev::WorkMeter::add(1);
  EXPECT_TRUE(budget.spent());
  Zev::WorkMeter::add(1);
  EXPECT_EQ(budget.used(), 4U);
  EXPECT_TRUE(budget.spent());
}

}  // namespace
