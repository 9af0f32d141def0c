// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Pell/Strep.h"

namespace strep_test {

struct Port {
  int number;
};

Pell::String valueToStrep(const Port& port) { return "port " + std::to_string(port.number); }

struct Silent {};

}  // namespace strep_test

namespace {

TEST(Strep, FormatsAValueAsItsText) {
  EXPECT_EQ(fmt::format("key: {} ", strep_test::Port{7}), "key: port 7 ");
}

TEST(Strep, HonoursWidthLikeAnyText) {
  EXPECT_EQ(fmt::format("[{:>8}]", strep_test::Port{12}), "[ port 12]");
}

TEST(Strep, IsOfferedOnlyByTypesWithATextForm) {
  EXPECT_TRUE(Pell::HasStrep<strep_test::Port>);
  EXPECT_FALSE(Pell::HasStrep<strep_test::Silent>);
  EXPECT_FALSE(Pell::HasStrep<int>);
}

}  // namespace
