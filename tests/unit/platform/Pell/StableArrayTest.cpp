// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "Pell/HashMap.h"

namespace {

// Chunks hold 8, 16, 32, ... elements, so they end at 8, 24, 56, 120, ...
class StableArrayChunkEdge : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(StableArrayChunkEdge, ElementsStayWhereTheyAreAroundTheEdge) {
  Pell::StableArray<std::uint32_t> array;
  std::vector<const std::uint32_t*> addresses;
  const std::uint32_t size = GetParam();
  for (std::uint32_t i = 0; i < size; ++i) {
    array.grow();
    EXPECT_EQ(array[i], 0U) << "a new element has its default value";
    array[i] = i * 3;
    addresses.push_back(&array[i]);
  }
  EXPECT_EQ(array.size(), size);
  for (std::uint32_t i = 0; i < size; ++i) {
    EXPECT_EQ(&array[i], addresses[i]) << "element " << i;
    EXPECT_EQ(array[i], i * 3) << "element " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(BelowAtAndAbove, StableArrayChunkEdge,
                         ::testing::Values(1, 7, 8, 9, 23, 24, 25, 55, 56, 57, 119, 120, 121, 8183,
                                           8184, 8185));

TEST(StableArray, ElementsOfOneChunkLieSideBySide) {
  Pell::StableArray<std::uint64_t> array;
  for (int i = 0; i < 24; ++i) {
    array.grow();
  }
  EXPECT_EQ(&array[7] - &array[0], 7);
  EXPECT_EQ(&array[23] - &array[8], 15);
}

TEST(StableArray, IsEmptyAtFirst) {
  const Pell::StableArray<int> array;
  EXPECT_EQ(array.size(), 0U);
}

}  // namespace
