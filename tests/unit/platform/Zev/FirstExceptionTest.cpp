// SPDX-License-Identifier: Apache-2.0

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "Zev/FirstException.h"

namespace {

TEST(FirstExceptionTest, WithoutAnExceptionNothingIsPassedOn) {
  Zev::FirstException first;
  EXPECT_TRUE(first.from([] {}));
  EXPECT_NO_THROW(first.rethrow());
}

TEST(FirstExceptionTest, EveryStepIsTakenAndTheFirstExceptionPassedOn) {
  Zev::FirstException first;
  std::vector<int> taken;
  const auto step = [&](int number, bool throws) {
    return first.from([&] {
      taken.push_back(number);
      if (throws) {
        throw number;
      }
    });
  };
  EXPECT_TRUE(step(1, false));
  EXPECT_FALSE(step(2, true));
  EXPECT_FALSE(step(3, true));
  EXPECT_TRUE(step(4, false));
  EXPECT_EQ(taken, (std::vector<int>{1, 2, 3, 4}));
  try {
    first.rethrow();
    ADD_FAILURE() << "nothing was thrown";
  } catch (int number) {
    EXPECT_EQ(number, 2);
  }
}

}  // namespace
