// SPDX-License-Identifier: Apache-2.0

#include <csignal>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Pell/Assert.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::KilledBySignal;
using ::testing::Not;

TEST(AssertDeathTest, PrintsPlaceAndTextAndAborts) {
  EXPECT_EXIT(Pell::assertionFailed("Some.cpp", 42, "entryHandle != NULL", ""),
              KilledBySignal(SIGABRT), Eq("Some.cpp:42: assertion failed: entryHandle != NULL\n"));
}

TEST(AssertDeathTest, PrintsTheMessageAfterTheText) {
  EXPECT_EXIT(Pell::assertionFailed("Some.cpp", 7, "false", "Invalid entry state"),
              KilledBySignal(SIGABRT),
              Eq("Some.cpp:7: assertion failed: false: Invalid entry state\n"));
}

TEST(AssertDeathTest, PrintsTheGivenTextAndNotTheCondition) {
  const int answer = 41;
  EXPECT_EXIT(PELL_ASSERT(answer == 42, "the answer"), KilledBySignal(SIGABRT),
              AllOf(HasSubstr("AssertTest.cpp:"), EndsWith(": assertion failed: the answer\n"),
                    Not(HasSubstr("answer == 42"))));
}

TEST(AssertDeathTest, EvaluatesTheMessageOnFailure) {
  const std::string detail = "built only now";
  EXPECT_EXIT(PELL_ASSERT_MESSAGE(detail.empty(), "empty", "it was " + detail),
              KilledBySignal(SIGABRT),
              EndsWith(": assertion failed: empty: it was built only now\n"));
}

TEST(Assert, EvaluatesTheConditionOnceAndTheMessageNeverOnSuccess) {
  int conditions = 0;
  int messages = 0;
  const auto holds = [&conditions] {
    ++conditions;
    return true;
  };
  const auto message = [&messages] {
    ++messages;
    return std::string("unused");
  };
  PELL_ASSERT_MESSAGE(holds(), "holds", message());
  EXPECT_EQ(conditions, 1);
  EXPECT_EQ(messages, 0);
}

TEST(Assert, IsOneStatementThatAnElseMayFollow) {
  bool otherwise = false;
  // NOLINTBEGIN(readability-braces-around-statements): without braces the macro must be one
  // statement
  if (otherwise)
    PELL_ASSERT(!otherwise, "not reached");
  else
    otherwise = true;
  // NOLINTEND(readability-braces-around-statements)
  EXPECT_TRUE(otherwise);
}

}  // namespace
